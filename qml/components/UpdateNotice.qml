import QtQuick 2.15
import QtQuick.Layouts 1.15
import Style 1.0

// A new version is available: shown in a corner without blocking the
// window, with the version, its release notes and three choices. The
// buttons have fixed sizes so the notice keeps one shape whatever the text.
Rectangle {
    id: notice
    objectName: "updateNotice"
    visible: false
    width: 440
    height: column.implicitHeight + 32
    radius: Style.radius
    color: Style.panelRaised
    border.color: Style.accent

    Connections {
        target: applicationStore
        function onLatestVersionAvailable() { notice.visible = true }
    }

    ColumnLayout {
        id: column
        anchors.fill: parent
        anchors.margins: 16
        spacing: 10

        Text {
            Layout.fillWidth: true
            text: qsTr("Glint Camera %1 is available").arg(applicationStore.latestVersion)
            color: Style.text
            font.pixelSize: Style.fontLarge
            font.weight: Font.DemiBold
            elide: Text.ElideRight
        }
        Text {
            Layout.fillWidth: true
            visible: text.length > 0
            text: applicationStore.releaseNotes
            textFormat: Text.PlainText
            color: Style.textMuted
            wrapMode: Text.WordWrap
            maximumLineCount: 6
            elide: Text.ElideRight
        }
        RowLayout {
            Layout.alignment: Qt.AlignRight
            spacing: 8
            AccentButton {
                objectName: "updateDownload"
                Layout.preferredWidth: 130
                text: qsTr("Download")
                onClicked: {
                    Qt.openUrlExternally(applicationStore.latestVersionUrl)
                    notice.visible = false
                }
            }
            AccentButton {
                objectName: "updateSkip"
                Layout.preferredWidth: 130
                primary: false
                text: qsTr("Skip this version")
                onClicked: {
                    actionProvider.skipUpdate(applicationStore.latestVersion)
                    notice.visible = false
                }
            }
            AccentButton {
                objectName: "updateLater"
                Layout.preferredWidth: 130
                primary: false
                text: qsTr("Later")
                onClicked: notice.visible = false
            }
        }
    }
}
