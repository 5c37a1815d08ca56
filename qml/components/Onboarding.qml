import QtQuick 2.15
import QtQuick.Layouts 1.15
import Style 1.0

// First-start introduction in three steps.
Rectangle {
    id: onboarding
    objectName: "onboarding"
    color: "#e60f1117"
    property int step: 0

    readonly property var steps: [
        { title: qsTr("Welcome to Glint Camera"),
          text: qsTr("Add lenses to your webcam picture: sunglasses, hats, colour looks and effects that react to your face.") },
        { title: qsTr("Pick a lens"),
          text: qsTr("Browse the catalogue on the main page, search by name or paste a lens link. Your favourites and recent lenses are one click away.") },
        { title: qsTr("Use it everywhere"),
          text: qsTr("In your video call or streaming app, choose \u201CGlint Camera\u201D as the camera. What you see in the preview is what others see.") }
    ]

    MouseArea { anchors.fill: parent } // keeps clicks from the page below

    Rectangle {
        anchors.centerIn: parent
        width: 520
        height: 340
        radius: Style.radiusLarge
        color: Style.panel
        border.color: Style.border

        ColumnLayout {
            anchors.fill: parent
            anchors.margins: 32
            spacing: Style.spacing

            Logo { size: 56 }
            Text {
                Layout.topMargin: Style.spacing
                text: onboarding.steps[onboarding.step].title
                color: Style.text
                font.pixelSize: Style.fontTitle
                font.weight: Font.DemiBold
            }
            Text {
                Layout.fillWidth: true
                wrapMode: Text.WordWrap
                text: onboarding.steps[onboarding.step].text
                color: Style.textMuted
                font.pixelSize: Style.fontNormal + 1
                lineHeight: 1.2
            }
            Item { Layout.fillHeight: true }
            RowLayout {
                Layout.fillWidth: true
                Row {
                    spacing: 6
                    Repeater {
                        model: onboarding.steps.length
                        Rectangle {
                            width: index === onboarding.step ? 22 : 8
                            height: 8
                            radius: 4
                            color: index === onboarding.step ? Style.accent : Style.border
                        }
                    }
                }
                Item { Layout.fillWidth: true }
                AccentButton {
                    objectName: "onboardingSkip"
                    primary: false
                    text: qsTr("Skip")
                    visible: onboarding.step < onboarding.steps.length - 1
                    onClicked: applicationStore.setShowOnboarding(false)
                }
                AccentButton {
                    objectName: "onboardingNext"
                    text: onboarding.step < onboarding.steps.length - 1 ? qsTr("Next") : qsTr("Start")
                    onClicked: {
                        if (onboarding.step < onboarding.steps.length - 1)
                            onboarding.step += 1
                        else
                            applicationStore.setShowOnboarding(false)
                    }
                }
            }
        }
    }
}
