<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="zh_TW" sourcelanguage="en">
<context>
    <name>Localizable</name>
    <message>
        <source>Do not update.  Don't ask me again.</source>
        <translation>不更新，並且不再詢問我。</translation>
    </message>
    <message>
        <source>What's new ?</source>
        <translation>有哪些新內容？</translation>
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
        <translation>現在可以安裝。</translation>
    </message>
    <message>
        <source>Not now</source>
        <translation>稍後再說</translation>
    </message>
    <message>
        <source>No program here opens the installer. It is at:</source>
        <translation>這裡沒有程式可以開啟安裝檔，它位於：</translation>
    </message>
    <message>
        <source>Show in folder</source>
        <translation>在資料夾中顯示</translation>
    </message>
</context>
</TS>
