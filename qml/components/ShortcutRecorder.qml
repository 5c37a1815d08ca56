import QtQuick 2.15
import QtQuick.Layouts 1.15
import Style 1.0

// A hotkey field: click it, press the keys. Esc cancels, Backspace clears.
// Shows what keeps the hotkey from working system-wide, next to it.
Rectangle {
    id: recorder
    property string title
    property string description
    property string sequence // portable key sequence text; empty: none
    property string problem
    property bool active: false
    signal recorded(string keys)

    implicitHeight: rows.implicitHeight + 2 * 14
    radius: Style.radius
    color: Style.panelRaised

    Connections {
        target: keyHelper
        enabled: recorder.active
        function onKeySequenceRecorded(sequence) {
            recorder.active = false
            recorder.recorded(sequence)
        }
        // The recorder stops before it reports; a report still on its way
        // must find the field active.
        function onRecordingChanged() {
            Qt.callLater(function() { if (!keyHelper.recording) recorder.active = false })
        }
    }

    RowLayout {
        id: rows
        anchors.fill: parent
        anchors.leftMargin: Style.margin
        anchors.rightMargin: Style.margin
        spacing: Style.spacing

        ColumnLayout {
            Layout.fillWidth: true
            spacing: 4
            Text {
                Layout.fillWidth: true
                text: recorder.title
                color: Style.text
                font.pixelSize: Style.fontNormal
                font.weight: Font.DemiBold
            }
            Text {
                Layout.fillWidth: true
                visible: text.length > 0
                text: recorder.description
                color: Style.textMuted
                font.pixelSize: Style.fontSmall
                wrapMode: Text.WordWrap
            }
            Text {
                objectName: recorder.objectName + "Problem"
                Layout.fillWidth: true
                visible: text.length > 0
                text: recorder.problem
                color: Style.warning
                font.pixelSize: Style.fontSmall
                wrapMode: Text.WordWrap
            }
        }

        Rectangle {
            objectName: recorder.objectName + "Field"
            implicitWidth: Math.max(140, label.implicitWidth + 24)
            implicitHeight: 34
            radius: Style.radius
            color: recorder.active ? Style.accent : Style.panel
            border.color: recorder.problem.length > 0 ? Style.warning : Style.border
            Text {
                id: label
                anchors.centerIn: parent
                text: recorder.active ? qsTr("Press keys\u2026")
                      : recorder.sequence.length > 0 ? recorder.sequence : qsTr("Not set")
                color: recorder.sequence.length > 0 || recorder.active ? Style.text : Style.textMuted
                font.pixelSize: Style.fontNormal
            }
            MouseArea {
                anchors.fill: parent
                cursorShape: Qt.PointingHandCursor
                onClicked: {
                    recorder.active = true
                    keyHelper.recording = true
                }
            }
        }
    }
}
