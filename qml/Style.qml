pragma Singleton
import QtQuick 2.15

// One look for the whole interface.
QtObject {
    readonly property color window: "#0f1117"
    readonly property color panel: "#171a23"
    readonly property color panelRaised: "#1f2330"
    readonly property color border: "#2a2f3d"
    readonly property color text: "#eef0f6"
    readonly property color textMuted: "#9aa1b5"
    readonly property color textFaint: "#636a7e"
    readonly property color accent: "#7c5cff"
    readonly property color accentBright: "#9b82ff"
    readonly property color accentSoft: "#2a2350"
    readonly property color warning: "#ff6b5e"
    readonly property color info: "#4aa8ff"
    readonly property color success: "#3ccf91"

    readonly property string fontFamily: "DejaVu Sans"
    readonly property int fontSmall: 12
    readonly property int fontNormal: 14
    readonly property int fontLarge: 18
    readonly property int fontTitle: 26

    readonly property int radius: 10
    readonly property int radiusLarge: 16
    readonly property int spacing: 12
    readonly property int margin: 20
    readonly property int navWidth: 76
    readonly property int animation: 160
}
