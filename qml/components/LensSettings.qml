import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15
import Qt.labs.platform 1.1 as Platform
import Style 1.0

// The lens section of the settings page: where downloaded lenses are kept,
// how much room they may take, and clearing saved lens data.
ColumnLayout {
    id: section
    objectName: "lensSettings"
    spacing: Style.spacing

    SectionTitle { text: qsTr("Lenses") }

    Platform.FolderDialog {
        id: folderDialog
        title: qsTr("Folder for downloaded lenses")
        currentFolder: lensStore.cacheDir
        onAccepted: actionProvider.setCacheDir(folder)
    }

    Rectangle {
        Layout.fillWidth: true
        implicitHeight: cacheRows.implicitHeight + 2 * Style.spacing
        radius: Style.radius
        color: Style.panelRaised

        ColumnLayout {
            id: cacheRows
            anchors.fill: parent
            anchors.margins: Style.spacing
            anchors.leftMargin: Style.margin
            anchors.rightMargin: Style.margin
            spacing: Style.spacing

            RowLayout {
                Layout.fillWidth: true
                ColumnLayout {
                    Layout.fillWidth: true
                    spacing: 2
                    Text { text: qsTr("Lens folder"); color: Style.text; font.weight: Font.DemiBold }
                    Text {
                        objectName: "cacheDirText"
                        Layout.fillWidth: true
                        text: lensStore.cacheDirDisplayName
                        color: Style.textMuted
                        font.pixelSize: Style.fontSmall
                        elide: Text.ElideMiddle
                    }
                }
                AccentButton { primary: false; text: qsTr("Change\u2026"); onClicked: folderDialog.open() }
            }
            RowLayout {
                Layout.fillWidth: true
                ColumnLayout {
                    Layout.fillWidth: true
                    spacing: 2
                    Text { text: qsTr("Space for lenses"); color: Style.text; font.weight: Font.DemiBold }
                    Text {
                        Layout.fillWidth: true
                        wrapMode: Text.WordWrap
                        text: qsTr("Lenses used least recently are removed when they need more room.")
                        color: Style.textMuted
                        font.pixelSize: Style.fontSmall
                    }
                }
                SpinBox {
                    objectName: "cacheLimit"
                    from: 50
                    to: 10000
                    stepSize: 50
                    editable: true
                    value: lensStore.cacheLimit
                    textFromValue: function(value) { return qsTr("%1 MB").arg(value) }
                    valueFromText: function(text) { return parseInt(text) }
                    onValueModified: actionProvider.setCacheLimit(value)
                }
            }
        }
    }

    RowLayout {
        Layout.fillWidth: true
        spacing: 8
        AccentButton { objectName: "clearCache"; primary: false; text: qsTr("Clear downloaded lenses"); onClicked: actionProvider.clearCache() }
        AccentButton { objectName: "clearFavorites"; primary: false; text: qsTr("Clear favourites (%1)").arg(lensStore.favoriteLensesModel.count); onClicked: actionProvider.clearFavorites() }
        AccentButton { objectName: "clearRecents"; primary: false; text: qsTr("Clear recent lenses"); onClicked: actionProvider.clearRecents() }
    }
}
