import QtQuick 2.15
import Style 1.0

Rectangle {
    id: button
    property string text
    property bool primary: true
    signal clicked()

    implicitWidth: label.implicitWidth + 36
    implicitHeight: 38
    radius: Style.radius
    color: primary ? (mouse.containsMouse ? Style.accentBright : Style.accent)
                   : (mouse.containsMouse ? Style.border : Style.panelRaised)
    border.color: primary ? "transparent" : Style.border

    Text {
        id: label
        anchors.centerIn: parent
        text: button.text
        color: Style.text
        font.pixelSize: Style.fontNormal
        font.weight: Font.DemiBold
    }
    MouseArea {
        id: mouse
        anchors.fill: parent
        hoverEnabled: true
        cursorShape: Qt.PointingHandCursor
        onClicked: button.clicked()
    }
}
