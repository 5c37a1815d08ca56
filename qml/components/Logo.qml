import QtQuick 2.15
import Style 1.0

// The product mark: a lens ring with a spark.
Item {
    id: logo
    property int size: 40
    width: size
    height: size

    Rectangle {
        anchors.fill: parent
        radius: width / 2
        gradient: Gradient {
            GradientStop { position: 0.0; color: Style.accentBright }
            GradientStop { position: 1.0; color: "#ff5fa2" }
        }
    }
    Rectangle {
        anchors.centerIn: parent
        width: parent.width * 0.56
        height: width
        radius: width / 2
        color: Style.panel
    }
    Rectangle {
        x: parent.width * 0.58
        y: parent.height * 0.2
        width: parent.width * 0.16
        height: width
        radius: width / 2
        color: "white"
    }
}
