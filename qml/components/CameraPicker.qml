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
