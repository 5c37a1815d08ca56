import QtQuick 2.15
import Style 1.0

// A square page button with a glyph and a short label.
Rectangle {
    id: button
    property string glyph
    property string label
    property bool checked: false
    signal clicked()

    width: 60
    height: 58
    radius: Style.radius
    color: checked ? Style.accentSoft : (mouse.containsMouse ? Style.panelRaised : "transparent")
    Behavior on color { ColorAnimation { duration: Style.animation } }

    Column {
        anchors.centerIn: parent
        spacing: 4
        Text {
            anchors.horizontalCenter: parent.horizontalCenter
            text: button.glyph
            color: button.checked ? Style.accentBright : Style.textMuted
            font.pixelSize: 20
        }
        Text {
            anchors.horizontalCenter: parent.horizontalCenter
            text: button.label
            color: button.checked ? Style.text : Style.textMuted
            font.pixelSize: 11
        }
    }

    MouseArea {
        id: mouse
        anchors.fill: parent
        hoverEnabled: true
        cursorShape: Qt.PointingHandCursor
        onClicked: button.clicked()
    }
}
