import QtQuick 2.15
import QtQuick.Layouts 1.15
import Style 1.0
import "../components"

Item {
    id: page
    objectName: "twitchPage"

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: Style.margin
        spacing: Style.spacing

        PageHeader {
            title: qsTr("Stream")
            subtitle: qsTr("Let your viewers change your lens with subscriptions and bits.")
        }

        Rectangle {
            Layout.fillWidth: true
            Layout.preferredHeight: 180
            Layout.maximumWidth: 720
            radius: Style.radiusLarge
            color: Style.panelRaised
            border.color: Style.border

            ColumnLayout {
                anchors.fill: parent
                anchors.margins: Style.margin
                spacing: Style.spacing
                Text {
                    text: qsTr("Twitch account")
                    color: Style.text
                    font.pixelSize: Style.fontLarge
                    font.weight: Font.DemiBold
                }
                Text {
                    Layout.fillWidth: true
                    wrapMode: Text.WordWrap
                    text: qsTr("Linking a Twitch account is not available in this version yet.")
                    color: Style.textMuted
                }
                Item { Layout.fillHeight: true }
            }
        }
        Item { Layout.fillHeight: true }
    }
}
