import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15
import Style 1.0
import "../components"

Item {
    id: page
    objectName: "settingsPage"

    Flickable {
        anchors.fill: parent
        anchors.margins: Style.margin
        contentHeight: content.implicitHeight
        clip: true

        ColumnLayout {
            id: content
            width: Math.min(parent.width, 720)
            spacing: Style.spacing

            PageHeader {
                title: qsTr("Settings")
                subtitle: qsTr("Preferences are saved when you close Glint Camera.")
                Layout.bottomMargin: Style.spacing
            }

            SectionTitle { text: qsTr("Camera") }

            SettingToggle {
                objectName: "mirrorPreview"
                Layout.fillWidth: true
                title: qsTr("Mirror preview")
                description: qsTr("Show the preview like a mirror. The picture others see is never mirrored.")
                checked: applicationStore.mirrorPreview
                onToggled: actionProvider.setMirrorPreview(value)
            }
            SettingToggle {
                objectName: "alwaysShowGlintcode"
                Layout.fillWidth: true
                title: qsTr("Always show Glintcode")
                description: qsTr("Keep the current lens's scannable code in the corner of the picture, so viewers can try the lens.")
                checked: applicationStore.alwaysShowGlintcode
                onToggled: actionProvider.setAlwaysShowGlintcode(value)
            }

            SectionTitle { text: qsTr("Application") }

            SettingToggle {
                objectName: "automaticUpdates"
                Layout.fillWidth: true
                title: qsTr("Automatic updates")
                description: qsTr("Look for a new version of Glint Camera at start.")
                checked: applicationStore.automaticUpdatesEnabled
                onToggled: actionProvider.setAutomaticUpdatesEnabled(value)
            }
            SettingToggle {
                objectName: "usageStatistics"
                Layout.fillWidth: true
                title: qsTr("Send anonymous usage statistics")
                description: qsTr("Which lenses are used and from where, which pages are opened, and when a session starts and ends. Never your picture, your name or your accounts.")
                checked: applicationStore.usageStatisticsEnabled
                onToggled: actionProvider.setUsageStatisticsEnabled(value)
            }

            Rectangle {
                Layout.fillWidth: true
                implicitHeight: 64
                radius: Style.radius
                color: Style.panelRaised
                RowLayout {
                    anchors.fill: parent
                    anchors.leftMargin: Style.margin
                    anchors.rightMargin: Style.margin
                    Text {
                        Layout.fillWidth: true
                        text: qsTr("Version %1").arg(applicationStore.currentVersion)
                        color: Style.textMuted
                    }
                    AccentButton {
                        objectName: "checkForUpdates"
                        text: qsTr("Check for updates")
                        onClicked: actionProvider.checkForUpdates()
                    }
                    AccentButton {
                        text: qsTr("Show introduction")
                        onClicked: applicationStore.setShowOnboarding(true)
                    }
                }
            }

            LensSettings { Layout.fillWidth: true }

            ShortcutSettings { Layout.fillWidth: true }
        }
    }
}
