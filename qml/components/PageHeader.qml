import QtQuick 2.15
import QtQuick.Layouts 1.15
import Style 1.0

ColumnLayout {
    property string title
    property string subtitle
    spacing: 4

    Text {
        text: parent.title
        color: Style.text
        font.pixelSize: Style.fontTitle
        font.weight: Font.DemiBold
    }
    Text {
        visible: text.length > 0
        text: parent.subtitle
        color: Style.textMuted
        font.pixelSize: Style.fontNormal
        wrapMode: Text.WordWrap
        Layout.fillWidth: true
    }
}
