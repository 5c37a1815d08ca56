#include "bitsevent.h"

#include "jsonfields.h"

namespace VCam {

bool BitsEvent::fromJson(const QJsonObject &json, BitsEvent &out, QString *error)
{
    JsonFields outer(json);
    BitsEvent e;
    e.version = outer.text("version");
    e.messageType = outer.text("message_type");
    e.messageId = outer.text("message_id");
    JsonFields f(outer.object("data"));
    e.userName = f.text("user_name");
    e.channelName = f.text("channel_name");
    e.userId = f.text("user_id");
    e.channelId = f.text("channel_id");
    e.time = f.text("time");
    e.chatMessage = f.text("chat_message");
    e.bitsUsed = f.integer("bits_used");
    e.totalBitsUsed = f.integer("total_bits_used");
    e.context = f.text("context");
    if (!outer.ok() || !f.ok()) {
        if (error)
            *error = outer.ok() ? f.error() : outer.error();
        return false;
    }
    out = e;
    return true;
}

QJsonObject BitsEvent::toJson() const
{
    const QJsonObject data{{"user_name", userName}, {"channel_name", channelName},
                           {"user_id", userId},     {"channel_id", channelId},
                           {"time", time},          {"chat_message", chatMessage},
                           {"bits_used", bitsUsed}, {"total_bits_used", totalBitsUsed},
                           {"context", context}};
    return {{"data", data}, {"version", version}, {"message_type", messageType}, {"message_id", messageId}};
}

} // namespace VCam
