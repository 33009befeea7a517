import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QuickHost

ApplicationWindow {
    width: 640
    height: 440
    visible: true
    title: qsTr("Sample App")

    Updater {
        id: updater
        onReady: prompt.open()
    }
    // Once the window is up.
    Timer {
        running: true
        interval: 0
        onTriggered: updater.check(false)
    }

    header: ToolBar {
        ToolButton {
            text: qsTr("Check for Updates…")
            enabled: !updater.busy
            onClicked: updater.check(true)
        }
    }
    footer: RowLayout {
        Label {
            Layout.fillWidth: true
            Layout.margins: 8
            wrapMode: Text.Wrap
            textFormat: Text.PlainText
            text: updater.status
        }
        ProgressBar {
            Layout.rightMargin: 8
            visible: updater.busy
            indeterminate: updater.progress === 0
            value: updater.progress
        }
    }

    Dialog {
        id: prompt
        anchors.centerIn: parent
        width: parent.width - 80
        height: parent.height - 40
        modal: true
        closePolicy: Popup.NoAutoClose
        title: qsTr("Version %1 of Sample App is ready to install").arg(updater.version)

        // What the service sends is text, and shown as such: the version and the notes.
        header: Label {
            padding: 12
            wrapMode: Text.Wrap
            font.bold: true
            textFormat: Text.PlainText
            text: prompt.title
        }
        contentItem: ColumnLayout {
            ScrollView {
                Layout.fillWidth: true
                Layout.fillHeight: true
                TextArea {
                    readOnly: true
                    textFormat: TextEdit.PlainText
                    wrapMode: TextEdit.Wrap
                    text: updater.notes
                }
            }
            Label {
                Layout.fillWidth: true
                elide: Text.ElideMiddle
                textFormat: Text.PlainText
                text: updater.installer
                font.pointSize: 8
            }
        }
        footer: DialogButtonBox {
            Button {
                text: qsTr("Update")
                highlighted: true
                DialogButtonBox.buttonRole: DialogButtonBox.AcceptRole
            }
            Button {
                text: qsTr("Not now")
                DialogButtonBox.buttonRole: DialogButtonBox.RejectRole
            }
            Button {
                text: qsTr("Do not ask again")
                DialogButtonBox.buttonRole: DialogButtonBox.DestructiveRole
                onClicked: {
                    updater.neverAskAgain()
                    prompt.reject()
                }
            }
        }
        onAccepted: {
            if (updater.install())
                Qt.quit() // The installer wants to replace this application.
        }
    }
}
