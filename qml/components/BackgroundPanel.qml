import QtQuick 2.15
import QtQuick.Dialogs 1.3
import QtQuick.Layouts 1.15
import Style 1.0
import VCam 1.0

// The background behind the person in view: off, blurred (light or strong)
// or replaced by an image, one that comes with the program or one of the
// user's own. Shows the camera store's state; a click only asks for a change.
Rectangle {
    id: panel
    objectName: "backgroundPanel"
    color: Style.panel
    radius: Style.radiusLarge
    border.color: Style.border
    implicitHeight: content.implicitHeight + 2 * Style.spacing

    readonly property int mode: coreStore.backgroundMode
    readonly property int strength: coreStore.backgroundBlurStrength
    // The image that "Image" puts behind the person: the last one chosen,
    // else the first that comes with the program.
    readonly property string image: coreStore.backgroundImagePath.length > 0
                                    ? coreStore.backgroundImagePath
                                    : (coreStore.bundledBackgrounds.length > 0 ? coreStore.bundledBackgrounds[0] : "")

    function choose(mode, strength, image) {
        actionProvider.setBackgroundEffect(mode, strength, image)
    }
    function urlOf(path) {
        return "file://" + path.split("/").map(encodeURIComponent).join("/")
    }

    component Chip: Rectangle {
        id: chip
        property string text
        property bool selected
        signal clicked()
        implicitWidth: chipLabel.implicitWidth + 24
        implicitHeight: 30
        radius: Style.radius
        color: selected ? Style.accentSoft : (chipMouse.containsMouse ? Style.border : Style.panelRaised)
        border.color: selected ? Style.accent : Style.border
        Text {
            id: chipLabel
            anchors.centerIn: parent
            text: chip.text
            color: chip.selected ? Style.accentBright : Style.text
            font.pixelSize: Style.fontSmall
            font.weight: Font.DemiBold
        }
        MouseArea {
            id: chipMouse
            anchors.fill: parent
            hoverEnabled: true
            cursorShape: Qt.PointingHandCursor
            onClicked: chip.clicked()
        }
    }

    ColumnLayout {
        id: content
        anchors.fill: parent
        anchors.margins: Style.spacing
        spacing: 8

        RowLayout {
            Layout.fillWidth: true
            spacing: 6
            Text {
                Layout.rightMargin: Style.spacing
                text: qsTr("Background")
                color: Style.text
                font.pixelSize: Style.fontNormal
                font.weight: Font.DemiBold
            }
            Chip {
                objectName: "backgroundOff"
                text: qsTr("Off")
                selected: panel.mode === VCam.BackgroundMode.Off
                onClicked: panel.choose(VCam.BackgroundMode.Off, panel.strength, coreStore.backgroundImagePath)
            }
            Chip {
                objectName: "backgroundBlur"
                text: qsTr("Blur")
                selected: panel.mode === VCam.BackgroundMode.Blur
                onClicked: panel.choose(VCam.BackgroundMode.Blur, panel.strength, coreStore.backgroundImagePath)
            }
            Chip {
                objectName: "backgroundImage"
                text: qsTr("Image")
                selected: panel.mode === VCam.BackgroundMode.Image
                onClicked: {
                    if (panel.image.length > 0)
                        panel.choose(VCam.BackgroundMode.Image, panel.strength, panel.image)
                    else
                        imageDialog.open()
                }
            }
            Item { Layout.fillWidth: true }
        }

        RowLayout {
            Layout.fillWidth: true
            visible: panel.mode === VCam.BackgroundMode.Blur
            spacing: 6
            Text {
                Layout.rightMargin: Style.spacing
                text: qsTr("Strength")
                color: Style.textMuted
                font.pixelSize: Style.fontSmall
            }
            Chip {
                objectName: "blurLight"
                text: qsTr("Light")
                selected: panel.strength === VCam.BlurStrength.Light
                onClicked: panel.choose(VCam.BackgroundMode.Blur, VCam.BlurStrength.Light, coreStore.backgroundImagePath)
            }
            Chip {
                objectName: "blurStrong"
                text: qsTr("Strong")
                selected: panel.strength === VCam.BlurStrength.Strong
                onClicked: panel.choose(VCam.BackgroundMode.Blur, VCam.BlurStrength.Strong, coreStore.backgroundImagePath)
            }
            Item { Layout.fillWidth: true }
        }

        Flow {
            Layout.fillWidth: true
            visible: panel.mode === VCam.BackgroundMode.Image
            spacing: 6
            Repeater {
                model: coreStore.bundledBackgrounds
                Rectangle {
                    objectName: "bundledBackground" + index
                    width: 56
                    height: 32
                    radius: 4
                    color: Style.panelRaised
                    border.width: 2
                    border.color: coreStore.backgroundImagePath === modelData ? Style.accent : "transparent"
                    Image {
                        anchors.fill: parent
                        anchors.margins: 2
                        source: panel.urlOf(modelData)
                        sourceSize.width: 112
                        fillMode: Image.PreserveAspectCrop
                        asynchronous: true
                    }
                    MouseArea {
                        anchors.fill: parent
                        cursorShape: Qt.PointingHandCursor
                        onClicked: panel.choose(VCam.BackgroundMode.Image, panel.strength, modelData)
                    }
                }
            }
            Chip {
                objectName: "chooseBackgroundImage"
                text: qsTr("Choose image\u2026")
                onClicked: imageDialog.open()
            }
        }

        Text {
            objectName: "backgroundError"
            Layout.fillWidth: true
            visible: text.length > 0
            wrapMode: Text.WordWrap
            color: Style.warning
            font.pixelSize: Style.fontSmall
            text: coreStore.backgroundError
        }
    }

    FileDialog {
        id: imageDialog
        title: qsTr("Choose a background image")
        nameFilters: [qsTr("Images (*.png *.jpg *.jpeg)")]
        onAccepted: panel.choose(VCam.BackgroundMode.Image, panel.strength,
                                 decodeURIComponent(fileUrl.toString().replace(/^file:\/\//, "")))
    }
}
