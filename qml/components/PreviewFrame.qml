import QtQuick 2.15
import Style 1.0
import Preview 1.0
import BusyIndicator 1.0
import NonBlockingPressCatcher 1.0

// The processed camera picture in a 16:9 stage. Until the first frame
// arrives it shows what the camera is doing. A tap on the picture reaches
// the lens, in frame pixels and as the camera sees it (not mirrored).
Item {
    id: frame
    property bool hasFrame: false

    Rectangle {
        id: stage
        anchors.top: parent.top
        anchors.topMargin: Style.spacing
        anchors.horizontalCenter: parent.horizontalCenter
        width: Math.min(parent.width, (parent.height - Style.spacing) * preview.whRatio)
        height: width / preview.whRatio
        radius: Style.radiusLarge
        color: "#07080c"
        border.color: Style.border
        clip: true

        PreviewOutput {
            id: preview
            anchors.fill: parent
            anchors.margins: 1
            flip: applicationStore.mirrorPreview
            visible: frame.hasFrame
        }

        Connections {
            target: coreStore
            function onFrameReady() { frame.hasFrame = true }
        }

        MouseArea {
            anchors.fill: preview
            enabled: frame.hasFrame
            function framePoint(mouse) {
                var x = mouse.x / width
                if (preview.flip)
                    x = 1 - x
                return Qt.point(x * 1280, mouse.y / height * 720)
            }
            onPressed: actionProvider.touchBegin(framePoint(mouse))
            onPositionChanged: actionProvider.touchChange(framePoint(mouse))
            onReleased: actionProvider.touchEnd(framePoint(mouse))
            onClicked: actionProvider.tapEvent(framePoint(mouse))
        }

        Column {
            anchors.centerIn: parent
            spacing: Style.spacing
            visible: !frame.hasFrame
            BusyIndicator {
                anchors.horizontalCenter: parent.horizontalCenter
                width: 72
                height: 72
                color: Style.accentBright
                visible: !frame.hasFrame
            }
            Text {
                anchors.horizontalCenter: parent.horizontalCenter
                text: coreStore.currentWebcamName.length > 0 ? qsTr("Starting %1\u2026").arg(coreStore.currentWebcamName)
                                                              : qsTr("No camera found")
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
            visible: frame.hasFrame
            Row {
                id: badge
                anchors.centerIn: parent
                spacing: 6
                Rectangle {
                    anchors.verticalCenter: parent.verticalCenter
                    width: 8; height: 8; radius: 4
                    color: coreStore.isStreamRunning ? Style.success : Style.warning
                }
                Text {
                    text: coreStore.currentWebcamName
                    color: Style.text
                    font.pixelSize: Style.fontSmall
                }
            }
        }
    }
}
