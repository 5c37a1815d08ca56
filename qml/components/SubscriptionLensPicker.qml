import QtQuick 2.15
import QtQuick.Layouts 1.15
import Style 1.0

// Chooses the lens of one subscription role from the favourites and the
// recent lenses. Shows the chosen lens; a click on a tile only asks for the
// change (actionProvider.setSecondaryLens).
Rectangle {
    id: picker
    property string title
    property int role              // LensRole: 0 any tier, 1..3 tier
    property string lensId         // the store's choice for the role
    readonly property var lens: lensId.length > 0 ? lensStore.getLensInfo(lensId) : ({})

    implicitHeight: column.implicitHeight + 2 * Style.spacing
    radius: Style.radius
    color: Style.panel
    border.color: Style.border

    ColumnLayout {
        id: column
        anchors.fill: parent
        anchors.margins: Style.spacing
        spacing: 8

        RowLayout {
            spacing: Style.spacing
            Text {
                text: picker.title
                color: Style.text
                font.pixelSize: Style.fontNormal
                font.weight: Font.DemiBold
            }
            Text {
                objectName: picker.objectName + "Chosen"
                Layout.fillWidth: true
                elide: Text.ElideRight
                text: picker.lensId.length === 0 ? qsTr("No lens: the lens on air gets the event")
                                                 : (picker.lens.title || picker.lensId)
                color: picker.lensId.length === 0 ? Style.textFaint : Style.accentBright
                font.pixelSize: Style.fontSmall
            }
            AccentButton {
                visible: picker.lensId.length > 0
                primary: false
                text: qsTr("Clear")
                onClicked: actionProvider.setSecondaryLens("", picker.role)
            }
        }

        Text {
            visible: favourites.count + recents.count === 0
            text: qsTr("Add favourites or try some lenses to pick from them here.")
            color: Style.textMuted
            font.pixelSize: Style.fontSmall
        }

        Flickable {
            Layout.fillWidth: true
            Layout.preferredHeight: favourites.count + recents.count > 0 ? 64 : 0
            contentWidth: tiles.implicitWidth
            clip: true
            boundsBehavior: Flickable.StopAtBounds
            Row {
                id: tiles
                spacing: 8
                Repeater {
                    id: favourites
                    model: lensStore.favoriteLensesModel
                    delegate: tile
                }
                Repeater {
                    id: recents
                    model: lensStore.recentsLensModel
                    delegate: tile
                }
            }
        }
    }

    Component {
        id: tile
        Rectangle {
            width: 64
            height: 64
            radius: Style.radius
            color: Style.panelRaised
            border.width: model.lensId === picker.lensId ? 2 : 1
            border.color: model.lensId === picker.lensId ? Style.accent : Style.border
            Image {
                anchors.fill: parent
                anchors.margins: 6
                source: model.iconUrl || ""
                fillMode: Image.PreserveAspectFit
                asynchronous: true
            }
            MouseArea {
                anchors.fill: parent
                cursorShape: Qt.PointingHandCursor
                hoverEnabled: true
                onClicked: actionProvider.setSecondaryLens(model.lensId, picker.role)
            }
        }
    }
}
