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

    Flickable {
        anchors.fill: parent
        contentHeight: content.implicitHeight + 2 * Style.margin
        boundsBehavior: Flickable.StopAtBounds
        clip: true

        ColumnLayout {
            id: content
            x: Style.margin
            y: Style.margin
            width: page.width - 2 * Style.margin
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

            // The channel: live or not, and our extension on it.
            Rectangle {
                objectName: "twitchChannelCard"
                visible: page.linked
                Layout.fillWidth: true
                Layout.maximumWidth: 720
                Layout.preferredHeight: channel.implicitHeight + 2 * Style.margin
                radius: Style.radiusLarge
                color: Style.panelRaised
                border.color: Style.border

                ColumnLayout {
                    id: channel
                    anchors.fill: parent
                    anchors.margins: Style.margin
                    spacing: Style.spacing

                    RowLayout {
                        spacing: Style.spacing
                        Rectangle {
                            width: 10
                            height: 10
                            radius: 5
                            color: twitchStore.streamLive ? Style.warning : Style.textFaint
                        }
                        Text {
                            objectName: "twitchStreamState"
                            text: twitchStore.streamLive
                                  ? qsTr("Live · %n viewer(s)", "", twitchStore.viewerCount)
                                  : qsTr("Offline")
                            color: Style.text
                            font.pixelSize: Style.fontNormal
                            font.weight: Font.DemiBold
                        }
                    }

                    // TwitchExtensionStatus: 0 not installed, 1 not activated, 2 activated.
                    RowLayout {
                        spacing: Style.spacing
                        Text {
                            objectName: "twitchExtensionStatus"
                            Layout.fillWidth: true
                            wrapMode: Text.WordWrap
                            text: twitchStore.extensionStatus === 2
                                  ? qsTr("The Glint extension is active on your channel.")
                                  : twitchStore.extensionStatus === 1
                                    ? qsTr("The Glint extension is installed but not activated.")
                                    : qsTr("The Glint extension is not installed on your channel.")
                            color: twitchStore.extensionStatus === 2 ? Style.success : Style.textMuted
                            font.pixelSize: Style.fontSmall
                        }
                        AccentButton {
                            objectName: "twitchExtensionButton"
                            visible: twitchStore.extensionStatus !== 2
                            primary: false
                            text: twitchStore.extensionStatus === 1 ? qsTr("Activate") : qsTr("Install")
                            onClicked: Qt.openUrlExternally(twitchStore.extensionUrl)
                        }
                    }

                    Text {
                        objectName: "twitchLiveEventsWarning"
                        visible: twitchStore.liveEventsWarning.length > 0
                        Layout.fillWidth: true
                        wrapMode: Text.WordWrap
                        text: twitchStore.liveEventsWarning
                        color: Style.warning
                        font.pixelSize: Style.fontSmall
                    }
                }
            }

            // What a subscription does.
            ColumnLayout {
                objectName: "twitchReactions"
                visible: page.linked
                Layout.fillWidth: true
                Layout.maximumWidth: 720
                spacing: 8

                SettingToggle {
                    objectName: "subscriptionReaction"
                    Layout.fillWidth: true
                    title: qsTr("Change the lens on a subscription")
                    description: qsTr("A new subscriber switches on the lens you choose for a while.")
                    checked: twitchStore.isSubscriptionReactionEnabled
                    onToggled: actionProvider.setTwitchSubscriptionReactionEnabled(value)
                }
                SettingToggle {
                    objectName: "subscriptionAnyTier"
                    Layout.fillWidth: true
                    enabled: twitchStore.isSubscriptionReactionEnabled
                    opacity: enabled ? 1 : 0.5
                    title: qsTr("Same lens for every tier")
                    description: qsTr("Off: choose one lens per tier (Prime counts as tier 1).")
                    checked: twitchStore.isIndependentOnSubscriptionTier
                    onToggled: actionProvider.setTwitchSubscriptionReactionIndependentOnTier(value)
                }
                SettingToggle {
                    objectName: "subscriptionResubscribe"
                    Layout.fillWidth: true
                    enabled: twitchStore.isSubscriptionReactionEnabled
                    opacity: enabled ? 1 : 0.5
                    title: qsTr("React to resubscriptions")
                    description: qsTr("Renewed subscriptions switch the lens too.")
                    checked: twitchStore.isSubcriptionReactionForResubscribeEnabled
                    onToggled: actionProvider.setTwitchSubscriptionReactionForResubscribeEnabled(value)
                }
                SettingToggle {
                    objectName: "subscriptionThanks"
                    Layout.fillWidth: true
                    title: qsTr("Thank the subscriber")
                    description: qsTr("The extension shows a thank-you with the subscriber's name.")
                    checked: twitchStore.isThanksEnabled
                    onToggled: actionProvider.setTwitchSubsriberThankEnabled(value)
                }

                SubscriptionLensPicker {
                    objectName: "lensPickerAnyTier"
                    visible: twitchStore.isIndependentOnSubscriptionTier
                    Layout.fillWidth: true
                    title: qsTr("Every tier")
                    role: 0
                    lensId: twitchStore.secondaryLensId
                }
                Repeater {
                    model: twitchStore.isIndependentOnSubscriptionTier ? 0 : 3
                    delegate: SubscriptionLensPicker {
                        objectName: "lensPickerTier" + (index + 1)
                        Layout.fillWidth: true
                        title: index === 0 ? qsTr("Tier 1 and Prime") : qsTr("Tier %1").arg(index + 1)
                        role: index + 1
                        lensId: [twitchStore.secondaryLensIdTier1, twitchStore.secondaryLensIdTier2,
                                 twitchStore.secondaryLensIdTier3][index]
                    }
                }

                RowLayout {
                    spacing: Style.spacing
                    Text {
                        text: qsTr("Keep the subscription lens for")
                        color: Style.text
                        font.pixelSize: Style.fontNormal
                    }
                    AccentButton {
                        objectName: "timeoutLess"
                        primary: false
                        text: "−"
                        onClicked: actionProvider.setTwitchSecondaryLensTimeout(
                                       Math.max(5000, twitchStore.secondaryLensTimeout - 5000))
                    }
                    Text {
                        objectName: "subscriptionTimeout"
                        text: qsTr("%1 s").arg(Math.floor(twitchStore.secondaryLensTimeout / 1000))
                        color: Style.accentBright
                        font.pixelSize: Style.fontNormal
                        font.weight: Font.DemiBold
                    }
                    AccentButton {
                        objectName: "timeoutMore"
                        primary: false
                        text: "+"
                        onClicked: actionProvider.setTwitchSecondaryLensTimeout(
                                       Math.min(600000, twitchStore.secondaryLensTimeout + 5000))
                    }
                    Item { Layout.fillWidth: true }
                    AccentButton {
                        objectName: "tryItButton"
                        text: qsTr("Try it")
                        onClicked: actionProvider.emulateSubscriptionEvent()
                    }
                }
            }
            Item { Layout.fillHeight: true }
        }
    }
}
