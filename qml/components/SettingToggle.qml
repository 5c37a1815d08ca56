import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15
import Style 1.0

// One preference: title, explanation and a switch. The switch shows the
// store's value; a click only asks for the change (onToggled).
Rectangle {
    id: row
    property string title
    property string description
    property bool checked
    signal toggled(bool value)

    implicitHeight: 76
    radius: Style.radius
    color: Style.panelRaised

    RowLayout {
        anchors.fill: parent
        anchors.leftMargin: Style.margin
        anchors.rightMargin: Style.margin
        spacing: Style.spacing

        ColumnLayout {
            Layout.fillWidth: true
            spacing: 4
            Text {
                text: row.title
                color: Style.text
                font.pixelSize: Style.fontNormal
                font.weight: Font.DemiBold
            }
            Text {
                Layout.fillWidth: true
                text: row.description
                color: Style.textMuted
                font.pixelSize: Style.fontSmall
                wrapMode: Text.WordWrap
            }
        }

        Rectangle {
            id: track
            objectName: row.objectName + "Switch"
            width: 46
            height: 26
            radius: height / 2
            color: row.checked ? Style.accent : Style.border
            Behavior on color { ColorAnimation { duration: Style.animation } }
            Rectangle {
                width: 20
                height: 20
                radius: 10
                y: 3
                x: row.checked ? track.width - width - 3 : 3
                color: "white"
                Behavior on x { NumberAnimation { duration: Style.animation } }
            }
            MouseArea {
                anchors.fill: parent
                cursorShape: Qt.PointingHandCursor
                onClicked: row.toggled(!row.checked)
            }
        }
    }
}
