import QtQuick 2.15
import QtQuick.Layouts 1.15
import Style 1.0

// The hotkeys section of the settings page: one key recorder per command.
// A key given to a second command moves there (a message says so).
ColumnLayout {
    id: section
    objectName: "shortcutSettings"
    spacing: Style.spacing

    SectionTitle { text: qsTr("Hotkeys") }

    Text {
        objectName: "shortcutsUnavailable"
        Layout.fillWidth: true
        visible: !applicationStore.shortcutsAvailable
        text: qsTr("System-wide hotkeys are not available here. %1 They still work while the Glint Camera window has the focus.")
              .arg(applicationStore.shortcutsUnavailableReason)
        color: Style.warning
        font.pixelSize: Style.fontSmall
        wrapMode: Text.WordWrap
    }

    // Role values of the shortcut roles: 1 lens on/off, 2 Glintcode,
    // 3 test event, 4 tap.
    Repeater {
        model: [
            { role: 1, name: "toggleLensShortcut", title: qsTr("Lens on and off"),
              description: qsTr("Takes the lens off, or puts the last one back on.") },
            { role: 2, name: "glintcodeShortcut", title: qsTr("Show or hide the Glintcode"),
              description: "" },
            { role: 3, name: "testEventShortcut", title: qsTr("Send test event"),
              description: qsTr("The lens's reaction to an event from a stream, or a tap.") },
            { role: 4, name: "tapShortcut", title: qsTr("Tap"), description: "" }
        ]
        delegate: ShortcutRecorder {
            objectName: modelData.name
            Layout.fillWidth: true
            title: modelData.title
            description: modelData.description
            sequence: [applicationStore.toggleLensShortcut, applicationStore.showHideGlintCodeShortcut,
                       applicationStore.externalTriggerShortcut, applicationStore.tapShortcut][modelData.role - 1]
            problem: { sequence; return applicationStore.shortcutProblem(sequence) }
            onRecorded: actionProvider.setGlobalShortcut(modelData.role, keys)
        }
    }
}
