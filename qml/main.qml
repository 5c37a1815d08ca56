import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15
import QtQuick.Window 2.15
import Style 1.0
import VCam 1.0
import "components"
import "pages"

ApplicationWindow {
    id: window
    objectName: "mainWindow"
    visible: true
    title: qsTr("Glint Camera")
    width: resizeHelper.preferredSize.width
    height: resizeHelper.preferredSize.height
    minimumWidth: resizeHelper.minimumSize.width
    minimumHeight: resizeHelper.minimumSize.height
    color: Style.window
    font.family: Style.fontFamily
    font.pixelSize: Style.fontNormal

    Component.onCompleted: actionProvider.notifyStarted()

    Shortcut { sequence: "Ctrl+1"; onActivated: actionProvider.openMainPage() }
    Shortcut { sequence: "Ctrl+2"; onActivated: actionProvider.openTwitchPage() }
    Shortcut { sequence: "Ctrl+,"; onActivated: actionProvider.openSettingsPage() }
    Shortcut { sequences: [StandardKey.Quit]; onActivated: window.close() }

    RowLayout {
        anchors.fill: parent
        spacing: 0

        NavigationBar {
            Layout.fillHeight: true
            Layout.preferredWidth: Style.navWidth
            currentPage: applicationStore.currentPage
        }

        StackLayout {
            id: pages
            objectName: "pages"
            Layout.fillWidth: true
            Layout.fillHeight: true
            currentIndex: applicationStore.currentPage

            MainPage {}
            SettingsPage {}
            TwitchPage {}
        }
    }

    PopupMessages {
        anchors.top: parent.top
        anchors.horizontalCenter: parent.horizontalCenter
        anchors.topMargin: Style.margin
    }

    Onboarding {
        anchors.fill: parent
        visible: applicationStore.showOnboarding
    }

    UpdateNotice {
        anchors.right: parent.right
        anchors.bottom: parent.bottom
        anchors.margins: Style.margin
    }
}
