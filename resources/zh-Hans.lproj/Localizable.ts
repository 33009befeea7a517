<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="zh_CN" sourcelanguage="en">
<context>
    <name>Localizable</name>
    <message>
        <source>Do not update.  Don't ask me again.</source>
        <translation>不更新，并且不再询问我。</translation>
    </message>
    <message>
        <source>What's new ?</source>
        <translation>有哪些新内容？</translation>
    </message>
    <message>
        <source>Update</source>
        <translation>更新</translation>
    </message>
    <message>
        <source>The latest version</source>
        <translation>最新版本</translation>
    </message>
    <message>
        <source>is ready to install now.</source>
        <translation>现在可以安装。</translation>
    </message>
    <message>
        <source>Not now</source>
        <translation>以后再说</translation>
    </message>
    <message>
        <source>No program here opens the installer. It is at:</source>
        <translation>这里没有程序可以打开安装文件，它位于：</translation>
    </message>
    <message>
        <source>Show in folder</source>
        <translation>在文件夹中显示</translation>
    </message>
</context>
</TS>
