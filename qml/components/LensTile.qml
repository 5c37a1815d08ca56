import QtQuick 2.15
import Style 1.0
import BusyIndicator 1.0

// One lens in a list: its icon, and its animated preview while the pointer
// rests on it; the current lens is outlined and shows its download.
Rectangle {
    id: tile
    objectName: "lensTile_" + lensId
    property string lensId
    property string title
    property string author
    property url iconUrl
    property var previewSequence
    property color mainColor: Style.panelRaised
    property bool isFav: false
    property bool isBundled: false
    property int context: 0
    readonly property bool isCurrent: lensStore.currentLens.lensId === lensId
    readonly property bool busy: isCurrent && lensStore.acquiring
    signal detailsRequested()

    width: 96
    height: 124
    radius: Style.radius
    color: mouse.containsMouse ? Style.panelRaised : "transparent"
    border.color: isCurrent ? Style.accent : "transparent"
    border.width: 2

    Rectangle {
        id: picture
        x: 8; y: 8
        width: parent.width - 16
        height: width
        radius: Style.radius
        color: tile.mainColor
        clip: true

        Image {
            id: icon
            anchors.fill: parent
            anchors.margins: 6
            source: tile.iconUrl
            fillMode: Image.PreserveAspectFit
            asynchronous: true
            visible: !sequence.running || frame.status !== Image.Ready
        }
        Image {
            id: frame
            anchors.fill: parent
            fillMode: Image.PreserveAspectCrop
            asynchronous: true
            visible: sequence.running && status === Image.Ready
            property int index: 0
            source: sequence.running && tile.previewSequence && tile.previewSequence.size > 0
                    ? tile.previewSequence.urlPattern.replace("%1", index) : ""
        }
        Timer {
            id: sequence
            interval: tile.previewSequence && tile.previewSequence.frameInterval > 0
                      ? tile.previewSequence.frameInterval : 100
            repeat: true
            running: mouse.containsMouse && tile.previewSequence !== undefined && tile.previewSequence.size > 1
            onTriggered: frame.index = (frame.index + 1) % tile.previewSequence.size
            onRunningChanged: frame.index = 0
        }
        Rectangle {
            objectName: "bundledBadge_" + tile.lensId
            visible: tile.isBundled
            anchors.left: parent.left
            anchors.bottom: parent.bottom
            anchors.margins: 4
            width: bundledText.implicitWidth + 8
            height: bundledText.implicitHeight + 2
            radius: 3
            color: "#b0000000"
            Text {
                id: bundledText
                anchors.centerIn: parent
                text: qsTr("Bundled")
                color: "white"
                font.pixelSize: 9
            }
        }
        Rectangle {
            anchors.fill: parent
            color: "#80000000"
            visible: tile.busy
            BusyIndicator {
                anchors.centerIn: parent
                width: 32; height: 32
            }
        }
        Text {
            anchors.right: parent.right
            anchors.top: parent.top
            anchors.margins: 4
            text: "\u2665"
            color: Style.warning
            visible: tile.isFav
            font.pixelSize: Style.fontNormal
        }
    }
    Text {
        anchors.top: picture.bottom
        anchors.topMargin: 6
        x: 6
        width: parent.width - 12
        horizontalAlignment: Text.AlignHCenter
        elide: Text.ElideRight
        text: tile.title
        color: tile.isCurrent ? Style.accentBright : Style.text
        font.pixelSize: Style.fontSmall
    }

    MouseArea {
        id: mouse
        anchors.fill: parent
        hoverEnabled: true
        acceptedButtons: Qt.LeftButton | Qt.RightButton
        cursorShape: Qt.PointingHandCursor
        onClicked: {
            if (mouse.button === Qt.RightButton)
                tile.detailsRequested()
            else
                actionProvider.setActiveLens(tile.isCurrent ? "-1" : tile.lensId, tile.context)
        }
    }
    Rectangle {
        objectName: "detailsButton"
        anchors.right: parent.right
        anchors.bottom: picture.bottom
        anchors.margins: 2
        width: 22; height: 22
        radius: 11
        color: Style.panel
        visible: mouse.containsMouse || details.containsMouse
        Text { anchors.centerIn: parent; text: "\u22EF"; color: Style.text }
        MouseArea {
            id: details
            anchors.fill: parent
            hoverEnabled: true
            onClicked: tile.detailsRequested()
        }
    }
}
