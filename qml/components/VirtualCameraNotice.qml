import QtQuick 2.15
import QtQuick.Layouts 1.15
import Style 1.0

// Shown while no "Glint Camera" device exists: says why and, when the one
// privileged step can make the device, offers to run it.
Rectangle {
    id: notice
    objectName: "virtualCameraNotice"
    readonly property string state_: coreStore.virtualCameraState
    visible: state_ !== "ready"
    implicitHeight: visible ? column.implicitHeight + 24 : 0
    radius: Style.radius
    color: Style.panelRaised
    border.color: Style.accent

    ColumnLayout {
        id: column
        anchors.fill: parent
        anchors.margins: 12
        spacing: 8

        Text {
            objectName: "virtualCameraMessage"
            Layout.fillWidth: true
            wrapMode: Text.WordWrap
            color: Style.text
            text: {
                switch (notice.state_) {
                case "driverMissing":
                    return qsTr("The virtual camera needs the v4l2loopback driver. Install the package v4l2loopback-dkms (for example: sudo apt install v4l2loopback-dkms), then come back here.")
                case "sinkMissing":
                    return qsTr("The virtual camera's companion program glint-camera-sink is missing; reinstall Glint Camera.")
                case "settingUp":
                    return qsTr("Setting up the virtual camera\u2026 confirm with your password.")
                default:
                    return qsTr("There is no \u201CGlint Camera\u201D device yet, so other programs cannot see the camera. Setting it up needs your password once.")
                }
            }
        }
        Text {
            objectName: "virtualCameraError"
            Layout.fillWidth: true
            visible: text.length > 0
            wrapMode: Text.WordWrap
            color: Style.textMuted
            text: coreStore.virtualCameraError
        }
        AccentButton {
            objectName: "virtualCameraSetUp"
            Layout.alignment: Qt.AlignRight
            visible: notice.state_ === "deviceMissing"
            text: qsTr("Set up virtual camera")
            onClicked: actionProvider.setUpVirtualCamera()
        }
    }
}
