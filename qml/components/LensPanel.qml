import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15
import Style 1.0
import BusyIndicator 1.0

// The lens explorer beside the camera picture: the lens in use, search as
// you type (or a pasted lens link), and the featured, community, favourite
// and recent lenses.
Rectangle {
    id: panel
    color: Style.panel
    radius: Style.radiusLarge
    border.color: Style.border

    readonly property bool searching: search.text.trim().length > 0
    // Lens action contexts, as the action vocabulary numbers them.
    readonly property int ctxFeatured: 2
    readonly property int ctxRecents: 3
    readonly property int ctxSearch: 4
    readonly property int ctxFavorites: 5
    readonly property int ctxSearchLink: 6
    readonly property int ctxExplorer: 1

    Shortcut {
        sequence: StandardKey.Find
        onActivated: search.forceActiveFocus()
    }

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: Style.margin
        spacing: Style.spacing

        RowLayout {
            Layout.fillWidth: true
            Text {
                Layout.fillWidth: true
                text: qsTr("Lenses")
                color: Style.text
                font.pixelSize: Style.fontLarge
                font.weight: Font.DemiBold
            }
            BusyIndicator {
                width: 20; height: 20
                visible: lensStore.fetching
            }
        }

        CurrentLensCard { Layout.fillWidth: true }

        TextField {
            id: search
            objectName: "searchField"
            Layout.fillWidth: true
            placeholderText: qsTr("Search lenses or paste a lens link")
            color: Style.text
            placeholderTextColor: Style.textFaint
            font.pixelSize: Style.fontNormal
            leftPadding: 14
            selectByMouse: true
            background: Rectangle {
                radius: Style.radius
                color: Style.panelRaised
                border.color: search.activeFocus ? Style.accent : Style.border
            }
            onTextEdited: actionProvider.setSearchFilter(text)
            onActiveFocusChanged: if (activeFocus) actionProvider.notifySearchOpened()
            // Enter uses the first lens found.
            onAccepted: {
                var first = lensStore.searchLensModel.lensIdAt(0)
                if (first.length > 0)
                    actionProvider.setActiveLens(first, lensStore.lensIdFromLink(text).length > 0 ? panel.ctxSearchLink : panel.ctxSearch)
            }
            Keys.onEscapePressed: { text = ""; focus = false }
        }

        Text {
            objectName: "catalogueError"
            Layout.fillWidth: true
            visible: text.length > 0
            wrapMode: Text.WordWrap
            color: Style.warning
            font.pixelSize: Style.fontSmall
            text: panel.searching && lensStore.searchError.length > 0
                  ? qsTr("Search failed. %1").arg(lensStore.searchError)
                  : !lensStore.online
                    ? qsTr("You are offline: the lens catalogue can't be reached. Lenses you used before still work; the lists come back once the connection does.")
                    : lensStore.catalogueError.length > 0
                      ? qsTr("The lens catalogue answered with an error. %1").arg(lensStore.catalogueError)
                      : ""
        }

        TabBar {
            id: tabs
            Layout.fillWidth: true
            visible: !panel.searching
            background: Rectangle { color: "transparent" }
            Repeater {
                model: [qsTr("Featured"), qsTr("Community"), qsTr("Favourites"), qsTr("Recent")]
                TabButton {
                    text: modelData
                    contentItem: Text {
                        text: parent.text
                        horizontalAlignment: Text.AlignHCenter
                        color: tabs.currentIndex === index ? Style.accentBright : Style.textMuted
                        font.pixelSize: Style.fontSmall
                        font.weight: Font.DemiBold
                    }
                    background: Rectangle {
                        color: "transparent"
                        Rectangle { anchors.bottom: parent.bottom; width: parent.width; height: 2
                                    color: tabs.currentIndex === index ? Style.accent : "transparent" }
                    }
                }
            }
            onCurrentIndexChanged: {
                if (currentIndex === 3) actionProvider.notifyRecentsOpened()
                else actionProvider.notifyRecentsClosed()
            }
        }

        StackLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            currentIndex: panel.searching ? 4 : tabs.currentIndex

            LensGrid {
                objectName: "featuredGrid"
                model: lensStore.featuredLensModel
                context: panel.ctxFeatured
                emptyText: lensStore.initing ? qsTr("Loading lenses\u2026") : qsTr("No featured lenses right now.")
                onDetailsRequested: detailsPopup.openFor(lensId, context)
            }
            LensGrid {
                objectName: "communityGrid"
                model: lensStore.topCommunityLensModel
                context: panel.ctxExplorer
                emptyText: lensStore.initing ? qsTr("Loading lenses\u2026") : qsTr("No community lenses to show.")
                onDetailsRequested: detailsPopup.openFor(lensId, context)
            }
            LensGrid {
                objectName: "favoritesGrid"
                model: lensStore.favoriteLensesModel
                context: panel.ctxFavorites
                emptyText: qsTr("Lenses you mark with \u2665 appear here.")
                onDetailsRequested: detailsPopup.openFor(lensId, context)
            }
            LensGrid {
                objectName: "recentsGrid"
                model: lensStore.recentsLensModel
                context: panel.ctxRecents
                emptyText: qsTr("Lenses you use appear here.")
                onDetailsRequested: detailsPopup.openFor(lensId, context)
            }
            LensGrid {
                objectName: "searchGrid"
                model: lensStore.searchLensModel
                context: lensStore.lensIdFromLink(search.text).length > 0 ? panel.ctxSearchLink : panel.ctxSearch
                emptyText: lensStore.fetching ? qsTr("Searching\u2026") : qsTr("No lens matches \u201C%1\u201D.").arg(search.text.trim())
                onDetailsRequested: detailsPopup.openFor(lensId, context)
            }
        }
    }

    LensDetails { id: detailsPopup }
}
