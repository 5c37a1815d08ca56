import QtQuick 2.15
import QtQuick.Layouts 1.15
import Style 1.0

// The column of page buttons on the window's left edge.
Rectangle {
    id: bar
    property int currentPage: 0
    color: Style.panel

    Rectangle {
        anchors.right: parent.right
        width: 1
        height: parent.height
        color: Style.border
    }

    ColumnLayout {
        anchors.fill: parent
        anchors.topMargin: Style.margin
        anchors.bottomMargin: Style.margin
        spacing: Style.spacing

        Logo {
            Layout.alignment: Qt.AlignHCenter
            Layout.bottomMargin: Style.margin
            size: 40
        }

        NavButton {
            objectName: "navLenses"
            Layout.alignment: Qt.AlignHCenter
            glyph: "\u25C9"
            label: qsTr("Lenses")
            checked: bar.currentPage === 0
            onClicked: actionProvider.openMainPage()
        }
        NavButton {
            objectName: "navTwitch"
            Layout.alignment: Qt.AlignHCenter
            glyph: "\u25B6"
            label: qsTr("Stream")
            checked: bar.currentPage === 2
            onClicked: actionProvider.openTwitchPage()
        }

        Item { Layout.fillHeight: true }

        NavButton {
            objectName: "navSettings"
            Layout.alignment: Qt.AlignHCenter
            glyph: "\u2699"
            label: qsTr("Settings")
            checked: bar.currentPage === 1
            onClicked: actionProvider.openSettingsPage()
        }
    }
}
