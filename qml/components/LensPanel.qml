import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15
import Style 1.0

// The lens side of the main page: search and the lists of lenses.
Rectangle {
    id: panel
    color: Style.panel
    radius: Style.radiusLarge
    border.color: Style.border

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: Style.margin
        spacing: Style.spacing

        Text {
            text: qsTr("Lenses")
            color: Style.text
            font.pixelSize: Style.fontLarge
            font.weight: Font.DemiBold
        }

        TextField {
            id: search
            objectName: "searchField"
            Layout.fillWidth: true
            placeholderText: qsTr("Search lenses or paste a lens link")
            color: Style.text
            placeholderTextColor: Style.textFaint
            font.pixelSize: Style.fontNormal
            leftPadding: 14
            background: Rectangle {
                radius: Style.radius
                color: Style.panelRaised
                border.color: search.activeFocus ? Style.accent : Style.border
            }
            onTextEdited: actionProvider.setSearchFilter(text)
        }

        Item {
            Layout.fillWidth: true
            Layout.fillHeight: true

            Column {
                anchors.centerIn: parent
                width: parent.width
                spacing: Style.spacing
                Logo {
                    anchors.horizontalCenter: parent.horizontalCenter
                    size: 48
                    opacity: 0.6
                }
                Text {
                    width: parent.width
                    horizontalAlignment: Text.AlignHCenter
                    text: qsTr("No lenses to show yet")
                    color: Style.text
                    font.pixelSize: Style.fontLarge
                }
                Text {
                    width: parent.width
                    horizontalAlignment: Text.AlignHCenter
                    wrapMode: Text.WordWrap
                    text: qsTr("Lenses from the catalogue appear here once it is reachable.")
                    color: Style.textMuted
                    font.pixelSize: Style.fontNormal
                }
            }
        }
    }
}
