#include "subscribeevent.h"

#include "jsonfields.h"

namespace VCam {

bool SubscribeEvent::fromJson(const QJsonObject &json, SubscribeEvent &out, QString *error)
{
    JsonFields f(json);
    SubscribeEvent e;
    e.userName = f.text("user_name");
    e.displayName = f.text("display_name");
    e.channelName = f.text("channel_name");
    e.userId = f.text("user_id");
    e.channelId = f.text("channel_id");
    e.time = f.text("time");
    e.subPlan = f.text("sub_plan");
    e.subPlanName = f.text("sub_plan_name");
    e.context = f.text("context");
    e.months = static_cast<int>(qBound<qint64>(0, f.integer("months"), 100000));
    if (!f.ok()) {
        if (error)
            *error = f.error();
        return false;
    }
    out = e;
    return true;
}

QJsonObject SubscribeEvent::toJson() const
{
    return {{"user_name", userName}, {"display_name", displayName},  {"channel_name", channelName},
            {"user_id", userId},     {"channel_id", channelId},      {"time", time},
            {"sub_plan", subPlan},   {"sub_plan_name", subPlanName}, {"context", context},
            {"months", months}};
}

} // namespace VCam
