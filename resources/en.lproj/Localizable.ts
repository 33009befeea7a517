<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en" sourcelanguage="en">
<context>
    <name>Localizable</name>
    <message>
        <source>Do not update.  Don't ask me again.</source>
        <translation>Do not update.  Don't ask me again.</translation>
    </message>
    <message>
        <source>What's new ?</source>
        <translation>What's new ?</translation>
    </message>
    <message>
        <source>Update</source>
        <translation>Update</translation>
    </message>
    <message>
        <source>The latest version</source>
        <translation>The latest version</translation>
    </message>
    <message>
        <source>is ready to install now.</source>
        <translation>is ready to install now.</translation>
    </message>
    <message>
        <source>Not now</source>
        <translation>Not now</translation>
    </message>
    <message>
        <source>No program here opens the installer. It is at:</source>
        <translation>No program here opens the installer. It is at:</translation>
    </message>
    <message>
        <source>Show in folder</source>
        <translation>Show in folder</translation>
    </message>
</context>
</TS>
