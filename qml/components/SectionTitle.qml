import QtQuick 2.15
import QtQuick.Layouts 1.15
import Style 1.0

Text {
    Layout.topMargin: Style.spacing
    color: Style.textFaint
    font.pixelSize: Style.fontSmall
    font.capitalization: Font.AllUppercase
    font.letterSpacing: 1.2
    font.weight: Font.DemiBold
}
