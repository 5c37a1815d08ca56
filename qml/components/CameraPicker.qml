import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Dialogs 1.3
import Style 1.0

// Chooses the camera: the connected cameras (or the demo camera when none
// is connected), or a video file played as a camera.
Row {
    id: picker
    spacing: Style.spacing

    ComboBox {
        id: cameras
        objectName: "cameraPicker"
        width: 280
        model: coreStore.webcamNames.concat([qsTr("Video file\u2026")])
        currentIndex: Math.max(0, coreStore.webcamNames.indexOf(coreStore.currentWebcamName))
        displayText: coreStore.currentWebcamName.indexOf("file:") === 0
                     ? coreStore.currentWebcamName.replace(/^.*[\\/]/, "") : coreStore.currentWebcamName
        font.pixelSize: Style.fontNormal
        contentItem: Text {
            leftPadding: 14
            rightPadding: cameras.indicator.width + 8
            text: cameras.displayText
            color: Style.text
            font: cameras.font
            verticalAlignment: Text.AlignVCenter
            elide: Text.ElideRight
        }
        indicator: Text {
            x: cameras.width - width - 14
            anchors.verticalCenter: parent.verticalCenter
            text: "\u25BE"
            color: Style.textMuted
            font.pixelSize: 14
        }
        background: Rectangle {
            implicitHeight: 40
            radius: Style.radius
            color: cameras.hovered ? Style.border : Style.panelRaised
            border.color: cameras.activeFocus ? Style.accent : Style.border
        }
        delegate: ItemDelegate {
            width: cameras.width
            highlighted: cameras.highlightedIndex === index
            contentItem: Text {
                text: modelData
                color: Style.text
                font.pixelSize: Style.fontNormal
                elide: Text.ElideRight
                verticalAlignment: Text.AlignVCenter
            }
            background: Rectangle { color: highlighted ? Style.accentSoft : Style.panelRaised }
        }
        popup.background: Rectangle {
            color: Style.panelRaised
            border.color: Style.border
            radius: Style.radius
        }
        onActivated: {
            if (index === coreStore.webcamNames.length)
                fileDialog.open()
            else
                actionProvider.setCamera(coreStore.webcamNames[index])
        }
    }

    FileDialog {
        id: fileDialog
        title: qsTr("Choose a video to use as camera")
        nameFilters: [qsTr("Videos (*.mp4 *.mkv *.webm *.mov *.avi)"), qsTr("All files (*)")]
        onAccepted: actionProvider.setCamera("file:" + decodeURIComponent(fileUrl.toString().replace(/^file:\/\//, "")))
    }
}
