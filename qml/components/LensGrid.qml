import QtQuick 2.15
import QtQuick.Controls 2.15
import Style 1.0

// A grid of lens tiles over one of the store's lens models. Scrolling to the
// end asks the model for more rows when it has more to give.
GridView {
    id: grid
    property int context: 0
    property string emptyText
    signal detailsRequested(string lensId)

    clip: true
    cellWidth: 100
    cellHeight: 128
    boundsBehavior: Flickable.StopAtBounds
    ScrollBar.vertical: ScrollBar { policy: ScrollBar.AsNeeded }

    delegate: LensTile {
        lensId: model.lensId
        title: model.title
        author: model.author
        iconUrl: model.iconUrl
        previewSequence: model.previewSequence
        mainColor: model.mainColor
        isFav: model.isFav
        isBundled: model.isBundled === true
        context: grid.context
        onDetailsRequested: grid.detailsRequested(lensId)
    }

    onAtYEndChanged: if (atYEnd && count > 0 && model && model.canLoadMore) model.requestMore()

    Text {
        anchors.centerIn: parent
        width: parent.width - 2 * Style.margin
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.WordWrap
        visible: grid.count === 0 && grid.emptyText.length > 0
        text: grid.emptyText
        color: Style.textMuted
        font.pixelSize: Style.fontNormal
    }
}
