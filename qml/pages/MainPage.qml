import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15
import Style 1.0
import "../components"

// The camera picture, with the background control under it, beside the lens
// panel.
Item {
    id: page
    objectName: "mainPage"

    RowLayout {
        anchors.fill: parent
        anchors.margins: Style.margin
        spacing: Style.margin

        ColumnLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            spacing: Style.spacing

            Item {
                Layout.fillWidth: true
                Layout.preferredHeight: 64
                PageHeader {
                    id: header
                    anchors.left: parent.left
                    anchors.right: picker.left
                    title: qsTr("Camera")
                    subtitle: cameraNotice.visible ? "" : qsTr("Choose \u201CGlint Camera\u201D as the camera in your call or streaming app.")
                }
                VirtualCameraNotice {
                    id: cameraNotice
                    anchors.left: parent.left
                    anchors.right: picker.left
                    anchors.rightMargin: Style.spacing
                    anchors.bottom: parent.bottom
                    height: 30
                }
                CameraPicker {
                    id: picker
                    anchors.right: parent.right
                    anchors.verticalCenter: parent.verticalCenter
                }
            }

            PreviewFrame {
                Layout.fillWidth: true
                Layout.fillHeight: true
            }

            BackgroundPanel { Layout.fillWidth: true }
        }

        LensPanel {
            Layout.preferredWidth: 340
            Layout.fillHeight: true
        }
    }
}
