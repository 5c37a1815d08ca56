import QtQuick 2.15
import QtQuick.Layouts 1.15
import Style 1.0

// Shown in place of the page's subtitle while no "Glint Camera" device
// exists: says why and, when the one privileged step can make the device,
// offers to run it. It never changes the height of the page's header.
RowLayout {
    id: notice
    objectName: "virtualCameraNotice"
    readonly property string cameraState: coreStore.virtualCameraState
    visible: cameraState !== "ready"
    spacing: 10

    ColumnLayout {
        Layout.fillWidth: true
        spacing: 0
        Text {
            objectName: "virtualCameraMessage"
            Layout.fillWidth: true
            wrapMode: Text.WordWrap
            maximumLineCount: coreStore.virtualCameraError.length > 0 ? 1 : 2
            elide: Text.ElideRight
            color: Style.accentBright
            font.pixelSize: Style.fontSmall
            text: {
                switch (notice.cameraState) {
                case "driverMissing":
                    return qsTr("The virtual camera needs the v4l2loopback driver: install the package v4l2loopback-dkms.")
                case "sinkMissing":
                    return qsTr("The virtual camera's program glint-camera-sink is missing: reinstall Glint Camera.")
                case "settingUp":
                    return qsTr("Setting up the virtual camera\u2026 confirm with your password.")
                default:
                    return qsTr("No \u201CGlint Camera\u201D device yet: other programs can't see the camera. Setting it up asks for your password once.")
                }
            }
        }
        Text {
            objectName: "virtualCameraError"
            Layout.fillWidth: true
            visible: text.length > 0
            elide: Text.ElideRight
            color: Style.textMuted
            font.pixelSize: Style.fontSmall
            text: coreStore.virtualCameraError
        }
    }
    AccentButton {
        objectName: "virtualCameraSetUp"
        visible: notice.cameraState === "deviceMissing"
        Layout.preferredHeight: 28
        text: qsTr("Set up virtual camera")
        onClicked: actionProvider.setUpVirtualCamera()
    }
}
