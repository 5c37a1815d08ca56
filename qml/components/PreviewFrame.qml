import QtQuick 2.15
import Style 1.0

// A 16:9 stage for the processed camera picture. Until the first frame
// arrives it shows what the camera is doing.
Item {
    id: frame
    property string status: qsTr("Waiting for the camera\u2026")

    Rectangle {
        id: stage
        anchors.centerIn: parent
        width: Math.min(parent.width, parent.height * 16 / 9)
        height: width * 9 / 16
        radius: Style.radiusLarge
        color: "#07080c"
        border.color: Style.border
        clip: true

        Column {
            anchors.centerIn: parent
            spacing: Style.spacing
            Logo {
                anchors.horizontalCenter: parent.horizontalCenter
                size: 72
                opacity: 0.85
            }
            Text {
                anchors.horizontalCenter: parent.horizontalCenter
                text: frame.status
                color: Style.textMuted
                font.pixelSize: Style.fontLarge
            }
        }

        Rectangle {
            anchors.left: parent.left
            anchors.bottom: parent.bottom
            anchors.margins: Style.spacing
            radius: height / 2
            height: 28
            width: badge.implicitWidth + 24
            color: "#99000000"
            Text {
                id: badge
                anchors.centerIn: parent
                text: applicationStore.mirrorPreview ? qsTr("Mirrored preview") : qsTr("Preview")
                color: Style.text
                font.pixelSize: Style.fontSmall
            }
        }
    }
}
