#include "metatypes.h"

#include "actiontypes.h"
#include "backgroundsetting.h"
#include "externalevent.h"
#include "gestureevent.h"
#include "globalshortcut.h"
#include "imagesequenceinfo.h"
#include "lenscommand.h"
#include "lensid.h"
#include "lensinfo.h"
#include "lensshortcut.h"
#include "popupmessage.h"
#include "streamstate.h"

#include <QMetaType>

namespace VCam {

namespace {

template <typename T> void registerPayload(const char *name)
{
    qRegisterMetaType<T>(name);
    if (!QMetaType::hasRegisteredDebugStreamOperator<T>())
        QMetaType::registerDebugStreamOperator<T>();
}

} // namespace

void registerMetaTypes()
{
    qRegisterMetaType<LensId>("LensId");
    qRegisterMetaType<LensId>("VCam::LensId");
    registerPayload<GlobalShortcut>("VCam::GlobalShortcut");
    registerPayload<LensShortcut>("VCam::LensShortcut");
    registerPayload<PopupMessage>("VCam::PopupMessage");
    registerPayload<GestureEvent>("VCam::GestureEvent");
    registerPayload<ExternalEvent>("VCam::ExternalEvent");
    registerPayload<StreamState>("VCam::StreamState");
    registerPayload<LensInfo>("VCam::LensInfo");
    registerPayload<LensCommand>("VCam::LensCommand");
    registerPayload<BackgroundSetting>("VCam::BackgroundSetting");
    qRegisterMetaType<ImageSequenceInfo>("VCam::ImageSequenceInfo");
    qRegisterMetaType<LensInfo>("LensInfo");
    qRegisterMetaType<ImageSequenceInfo>("ImageSequenceInfo");
    qRegisterMetaType<GestureEvent>("GestureEvent");
    qRegisterMetaType<ExternalEvent>("ExternalEvent");
    qRegisterMetaType<StreamState>("StreamState");
    qRegisterMetaType<ActionType>("VCam::ActionType");
    qRegisterMetaType<LensRole>("VCam::LensRole");
    qRegisterMetaType<ShortcutRole>("VCam::ShortcutRole");
    qRegisterMetaType<MessageType>("VCam::MessageType");
    qRegisterMetaType<LensReportType>("VCam::LensReportType");
    qRegisterMetaType<TwitchAuthState>("VCam::TwitchAuthState");
    qRegisterMetaType<TwitchExtensionStatus>("VCam::TwitchExtensionStatus");
    qRegisterMetaType<GestureType>("VCam::GestureType");
    qRegisterMetaType<BackgroundMode>("VCam::BackgroundMode");
    qRegisterMetaType<BlurStrength>("VCam::BlurStrength");
    qRegisterMetaType<LensActionContext>("VCam::ActionContext::LensActionContext");
    qRegisterMetaType<LensActionContext>("ActionContext::LensActionContext");
}

} // namespace VCam
