import QtQuick 2.15
import QtQuick.Layouts 1.15
import BusyIndicator 1.0
import Style 1.0
import "../components"

Item {
    id: page
    objectName: "twitchPage"

    // TwitchAuthState: 0 Unknown, 1 NotAuthorized, 2 WaitingAccessCode,
    // 3 WaitingAccessToken, 4 Authorized.
    readonly property int authState: twitchStore.oauthState
    readonly property bool linked: authState === 4
    readonly property bool waiting: authState === 2 || authState === 3

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: Style.margin
        spacing: Style.spacing

        PageHeader {
            title: qsTr("Stream")
            subtitle: qsTr("Let your viewers change your lens with subscriptions and bits.")
        }

        Rectangle {
            objectName: "twitchAccountCard"
            Layout.fillWidth: true
            Layout.maximumWidth: 720
            Layout.preferredHeight: card.implicitHeight + 2 * Style.margin
            radius: Style.radiusLarge
            color: Style.panelRaised
            border.color: Style.border

            ColumnLayout {
                id: card
                anchors.fill: parent
                anchors.margins: Style.margin
                spacing: Style.spacing

                Text {
                    text: qsTr("Twitch account")
                    color: Style.text
                    font.pixelSize: Style.fontLarge
                    font.weight: Font.DemiBold
                }

                // Not linked: one button that opens the browser.
                ColumnLayout {
                    visible: !page.linked && !page.waiting
                    spacing: Style.spacing
                    Text {
                        Layout.fillWidth: true
                        wrapMode: Text.WordWrap
                        text: qsTr("Link your Twitch account to react to subscriptions and bits on your channel. "
                                   + "Glint Camera opens Twitch in your browser to sign in.")
                        color: Style.textMuted
                    }
                    AccentButton {
                        objectName: "linkTwitchButton"
                        text: qsTr("Link Twitch")
                        onClicked: actionProvider.authorizeTwitch()
                    }
                }

                // Signing in: the browser has the next step.
                ColumnLayout {
                    visible: page.waiting
                    spacing: Style.spacing
                    RowLayout {
                        spacing: Style.spacing
                        BusyIndicator {
                            Layout.preferredWidth: 24
                            Layout.preferredHeight: 24
                        }
                        Text {
                            objectName: "twitchWaitingText"
                            Layout.fillWidth: true
                            wrapMode: Text.WordWrap
                            text: page.authState === 2
                                  ? qsTr("Waiting for you to sign in to Twitch in your browser…")
                                  : qsTr("Finishing the link with Twitch…")
                            color: Style.text
                        }
                    }
                    AccentButton {
                        objectName: "cancelTwitchButton"
                        primary: false
                        text: qsTr("Cancel")
                        onClicked: actionProvider.deauthorizeTwitch()
                    }
                }

                // Linked: who, and the way back.
                RowLayout {
                    visible: page.linked
                    spacing: Style.spacing
                    Rectangle {
                        Layout.preferredWidth: 36
                        Layout.preferredHeight: 36
                        radius: 18
                        color: Style.accentSoft
                        Text {
                            anchors.centerIn: parent
                            text: twitchStore.currentUserName.length > 0
                                  ? twitchStore.currentUserName.charAt(0).toUpperCase() : "?"
                            color: Style.accentBright
                            font.pixelSize: Style.fontLarge
                            font.weight: Font.DemiBold
                        }
                    }
                    ColumnLayout {
                        Layout.fillWidth: true
                        spacing: 2
                        Text {
                            objectName: "twitchUserName"
                            text: twitchStore.currentUserName.length > 0 ? twitchStore.currentUserName
                                                                         : qsTr("Linked account")
                            color: Style.text
                            font.pixelSize: Style.fontNormal
                            font.weight: Font.DemiBold
                        }
                        Text {
                            text: qsTr("Linked to Glint Camera")
                            color: Style.success
                            font.pixelSize: Style.fontSmall
                        }
                    }
                    AccentButton {
                        objectName: "unlinkTwitchButton"
                        primary: false
                        text: qsTr("Unlink")
                        onClicked: actionProvider.deauthorizeTwitch()
                    }
                }

                Text {
                    objectName: "twitchNotRememberedText"
                    visible: !twitchStore.tokensRemembered
                    Layout.fillWidth: true
                    wrapMode: Text.WordWrap
                    text: qsTr("No credential store is available on this system, so your Twitch sign-in "
                               + "will not be remembered after Glint Camera closes.")
                    color: Style.warning
                    font.pixelSize: Style.fontSmall
                }
            }
        }
        Item { Layout.fillHeight: true }
    }
}
