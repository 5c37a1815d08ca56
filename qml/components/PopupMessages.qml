import QtQuick 2.15
import Style 1.0

// Pop-up messages from the application store: warnings, information and
// successes, each shown for a few seconds in its own colour.
Column {
    id: messages
    spacing: 8
    width: 460

    ListModel { id: popupModel }

    function show(text, kind) {
        popupModel.append({ "text": text, "kind": kind })
    }

    Connections {
        target: applicationStore
        function onShowWarningPopup(message) { messages.show(message, "warning") }
        function onShowInfoPopup(message) { messages.show(message, "info") }
        function onShowSuccessPopup(message) { messages.show(message, "success") }
    }

    Repeater {
        model: popupModel
        delegate: Rectangle {
            objectName: "popup_" + kind
            width: messages.width
            height: Math.max(48, body.implicitHeight + 24)
            radius: Style.radius
            color: Style.panelRaised
            border.color: kind === "warning" ? Style.warning : (kind === "success" ? Style.success : Style.info)
            Rectangle {
                width: 4
                height: parent.height - 16
                anchors.verticalCenter: parent.verticalCenter
                x: 8
                radius: 2
                color: parent.border.color
            }
            Text {
                id: body
                anchors.verticalCenter: parent.verticalCenter
                x: 24
                width: parent.width - 40
                wrapMode: Text.WordWrap
                text: model.text
                color: Style.text
            }
            Timer {
                interval: 4000
                running: true
                onTriggered: popupModel.remove(index)
            }
            MouseArea {
                anchors.fill: parent
                onClicked: popupModel.remove(index)
            }
        }
    }
}
