import QtQuick 2.15
import QtQuick.Layouts 1.15
import Style 1.0
import BusyIndicator 1.0
import Mirage 1.0

// The lens on the camera now: name, author, its hint and its download.
Rectangle {
    id: card
    objectName: "currentLensCard"
    property string hint
    readonly property var lens: lensStore.currentLens
    readonly property bool hasLens: lens.lensId !== undefined && lens.lensId !== "-1"

    // Always the same height, so the lists below never move under the pointer.
    implicitHeight: 64
    radius: Style.radius
    color: Style.panelRaised
    border.color: lensStore.state === Lens.Failed ? Style.warning : Style.border

    Connections {
        target: lensStore
        function onShowHintRequested(text, autoHide) {
            card.hint = text
            hideTimer.restart()
            hideTimer.running = autoHide
        }
        function onHideHintRequested() { card.hint = "" }
        function onCurrentLensChanged() { if (!card.hasLens) card.hint = "" }
    }
    Timer { id: hideTimer; interval: 5000; onTriggered: card.hint = "" }

    RowLayout {
        id: row
        anchors.fill: parent
        anchors.margins: 10
        spacing: 10
        Rectangle {
            width: 44; height: 44
            radius: 8
            color: card.lens.mainColor || Style.panel
            Image { anchors.fill: parent; anchors.margins: 4; source: card.lens.iconUrl || ""; fillMode: Image.PreserveAspectFit }
            BusyIndicator { anchors.fill: parent; visible: lensStore.acquiring }
        }
        ColumnLayout {
            Layout.fillWidth: true
            spacing: 2
            Text {
                objectName: "currentLensTitle"
                Layout.fillWidth: true
                text: card.hasLens ? (card.lens.title || card.lens.lensId) : qsTr("No lens")
                color: Style.text
                font.weight: Font.DemiBold
                elide: Text.ElideRight
            }
            Text {
                Layout.fillWidth: true
                text: lensStore.lensError.length > 0 ? lensStore.lensError
                      : !card.hasLens ? qsTr("Pick a lens below to put it on")
                      : lensStore.acquiring ? qsTr("Downloading\u2026")
                      : lensStore.state === Lens.Failed ? qsTr("This lens could not be loaded")
                      : (card.lens.author ? qsTr("by %1").arg(card.lens.author) : "")
                color: lensStore.state === Lens.Failed || lensStore.lensError.length > 0 ? Style.warning : Style.textMuted
                font.pixelSize: Style.fontSmall
                elide: Text.ElideRight
            }
            Text {
                objectName: "lensHint"
                Layout.fillWidth: true
                visible: card.hint.length > 0
                text: card.hint
                color: Style.accentBright
                font.pixelSize: Style.fontSmall
                font.weight: Font.DemiBold
                wrapMode: Text.WordWrap
            }
        }
        // For lenses that react to events: what a stream event would do.
        // Two short lines, so the lens's name keeps its room.
        Rectangle {
            objectName: "sendTestEventButton"
            visible: card.hasLens && coreStore.isTriggerAvailable
            implicitWidth: 76
            implicitHeight: 38
            radius: Style.radius
            color: testEventMouse.containsMouse ? Style.border : Style.panelRaised
            border.color: Style.border
            Text {
                anchors.centerIn: parent
                width: parent.width - 8
                horizontalAlignment: Text.AlignHCenter
                wrapMode: Text.WordWrap
                text: qsTr("Send test event")
                color: Style.text
                font.pixelSize: Style.fontSmall
                font.weight: Font.DemiBold
            }
            MouseArea {
                id: testEventMouse
                anchors.fill: parent
                hoverEnabled: true
                cursorShape: Qt.PointingHandCursor
                onClicked: actionProvider.emulateExternalEvent()
            }
        }
        AccentButton {
            visible: card.hasLens
            primary: false
            text: qsTr("Off")
            onClicked: actionProvider.setActiveLens("-1", 1)
        }
    }
}
