import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15
import Qt.labs.platform 1.1 as Platform
import Style 1.0

// Everything about one lens: its preview, author, and what can be done with
// it (use, favourite, copy the link, save the code image, report).
Popup {
    id: details
    objectName: "lensDetails"
    property string lensId: "-1"
    property int context: 0
    property var lens: ({})
    property string reportState: "" // "", "form", "sent", or the error text

    modal: true
    focus: true
    padding: Style.margin
    width: 420
    anchors.centerIn: Overlay.overlay
    background: Rectangle { color: Style.panel; radius: Style.radiusLarge; border.color: Style.border }

    function openFor(id, ctx) {
        lensId = id
        context = ctx
        reportState = ""
        refresh()
        open()
    }
    function refresh() { lens = lensStore.getLensInfo(lensId) }

    Connections {
        target: lensStore
        function onIsFavoriteChanged(id, value) { if (id === details.lensId) details.refresh() }
        function onCurrentLensChanged() { details.refresh() }
        function onReportLensSuccess() { details.reportState = "sent" }
        function onReportLensError(message) { details.reportState = message }
    }

    Platform.FileDialog {
        id: saveDialog
        title: qsTr("Save the lens's code image")
        fileMode: Platform.FileDialog.SaveFile
        nameFilters: [qsTr("PNG images (*.png)")]
        folder: Platform.StandardPaths.writableLocation(Platform.StandardPaths.PicturesLocation)
        currentFile: folder + "/" + (details.lens.title || "lens") + ".png"
        onAccepted: actionProvider.saveGlintcode(details.lensId, file, details.context)
    }

    contentItem: ColumnLayout {
        spacing: Style.spacing

        Rectangle {
            Layout.fillWidth: true
            Layout.preferredHeight: 200
            radius: Style.radius
            color: details.lens.mainColor || Style.panelRaised
            clip: true
            Image {
                anchors.fill: parent
                fillMode: Image.PreserveAspectCrop
                source: details.lens.preview || details.lens.iconUrl || ""
                asynchronous: true
            }
        }
        Text {
            Layout.fillWidth: true
            text: details.lens.title || details.lensId
            color: Style.text
            font.pixelSize: Style.fontLarge
            font.weight: Font.DemiBold
            elide: Text.ElideRight
        }
        Text {
            Layout.fillWidth: true
            text: details.lens.author ? qsTr("by <a href=\"%1\">%2</a>").arg(details.lens.authorPageUrl).arg(details.lens.author) : ""
            textFormat: Text.StyledText
            linkColor: Style.accentBright
            color: Style.textMuted
            onLinkActivated: Qt.openUrlExternally(link)
        }

        RowLayout {
            Layout.fillWidth: true
            spacing: 8
            AccentButton {
                objectName: "useLensButton"
                text: details.lens.lensId === lensStore.currentLens.lensId ? qsTr("Take off") : qsTr("Use lens")
                onClicked: actionProvider.setActiveLens(
                               details.lens.lensId === lensStore.currentLens.lensId ? "-1" : details.lensId,
                               details.context)
            }
            AccentButton {
                objectName: "favoriteButton"
                primary: false
                text: details.lens.isFav ? qsTr("\u2665 Favourite") : qsTr("\u2661 Add to favourites")
                onClicked: actionProvider.setLensFavorite(details.lensId, !details.lens.isFav, details.context)
            }
        }
        RowLayout {
            Layout.fillWidth: true
            spacing: 8
            AccentButton {
                objectName: "copyLinkButton"
                primary: false
                text: qsTr("Copy link")
                onClicked: actionProvider.copyLensLink(details.lensId, details.context)
            }
            AccentButton {
                objectName: "saveCodeButton"
                primary: false
                text: qsTr("Save code image")
                onClicked: saveDialog.open()
            }
            AccentButton {
                objectName: "reportButton"
                primary: false
                text: qsTr("Report")
                onClicked: details.reportState = "form"
            }
        }

        ShortcutRecorder {
            objectName: "lensShortcut"
            Layout.fillWidth: true
            title: qsTr("Shortcut")
            description: qsTr("Switches to this lens from any program.")
            sequence: { applicationStore.toggleLensShortcut; return applicationStore.getLensShortcut(details.lensId) }
            problem: { sequence; return applicationStore.shortcutProblem(sequence) }
            onRecorded: actionProvider.setLensShortcut(details.lensId, keys)
        }

        ColumnLayout {
            Layout.fillWidth: true
            visible: details.reportState === "form"
            spacing: 6
            ButtonGroup { id: reportKind }
            RadioButton {
                id: inappropriate
                checked: true
                ButtonGroup.group: reportKind
                contentItem: Text { leftPadding: 28; text: qsTr("Inappropriate lens"); color: Style.text; verticalAlignment: Text.AlignVCenter }
            }
            RadioButton {
                id: copyright
                ButtonGroup.group: reportKind
                contentItem: Text { leftPadding: 28; text: qsTr("Copyright infringement"); color: Style.text; verticalAlignment: Text.AlignVCenter }
            }
            TextField {
                id: description
                Layout.fillWidth: true
                placeholderText: qsTr("What is wrong with this lens?")
                color: Style.text
                background: Rectangle { radius: Style.radius; color: Style.panelRaised; border.color: Style.border }
            }
            AccentButton {
                text: qsTr("Send report")
                onClicked: actionProvider.reportLens(details.lensId,
                                                     copyright.checked ? 0 : 1,
                                                     description.text, details.context)
            }
        }
        Text {
            Layout.fillWidth: true
            wrapMode: Text.WordWrap
            visible: details.reportState !== "" && details.reportState !== "form"
            text: details.reportState === "sent" ? qsTr("Thank you, the report was sent.")
                                                  : qsTr("The report could not be sent: %1").arg(details.reportState)
            color: details.reportState === "sent" ? Style.success : Style.warning
        }
    }
}
