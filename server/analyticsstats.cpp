#include "analyticsstats.h"

#include "database.h"
#include "serverconfig.h"

#include <SQLiteCpp/Statement.h>
#include <ctime>
#include <filesystem>
#include <glintcamera_events.pb.h>
#include <iostream>
#include <set>

namespace glint::server {

namespace gale = com::parlo::analytics::gale;

namespace {

std::string dayOf(int64_t seconds)
{
    const std::time_t time = static_cast<std::time_t>(seconds);
    std::tm parts{};
    if (!gmtime_r(&time, &parts))
        return "unknown";
    char text[16];
    std::strftime(text, sizeof text, "%Y-%m-%d", &parts);
    return text;
}

template <typename Enum> std::string named(const std::string &name, Enum value)
{
    return name.empty() ? "UNKNOWN(" + std::to_string(int(value)) + ")" : name;
}

std::string typeOf(const gale::GlintcameraEvent &event)
{
    switch (event.event_case()) {
    case gale::GlintcameraEvent::kLensAction: {
        const auto value = event.lens_action().glint_camera_lens_events();
        return named(gale::GlintCameraLensEvents_Name(value), value);
    }
    case gale::GlintcameraEvent::kSessionAction: {
        const auto value = event.session_action().glint_camera_session();
        return named(gale::GlintCameraSession_Name(value), value);
    }
    case gale::GlintcameraEvent::kUserAction: {
        const auto value = event.user_action().glint_camera_user_interaction();
        return named(gale::GlintCameraUserInteraction_Name(value), value);
    }
    case gale::GlintcameraEvent::kExtentionAction:
        return "STREAM_STATE";
    case gale::GlintcameraEvent::EVENT_NOT_SET:
        break;
    }
    return "UNKNOWN_EVENT";
}

int64_t clientTsOf(const gale::GlintcameraEvent &event)
{
    switch (event.event_case()) {
    case gale::GlintcameraEvent::kLensAction:
        return event.lens_action().glintcamera_event_base().client_ts();
    case gale::GlintcameraEvent::kSessionAction:
        return event.session_action().glintcamera_event_base().client_ts();
    case gale::GlintcameraEvent::kUserAction:
        return event.user_action().glintcamera_event_base().client_ts();
    case gale::GlintcameraEvent::kExtentionAction:
        return event.extention_action().glintcamera_event_base().client_ts();
    case gale::GlintcameraEvent::EVENT_NOT_SET:
        break;
    }
    return 0;
}

} // namespace

std::string AnalyticsStats::typeName(const std::string &serialisedEvent)
{
    gale::GlintcameraEvent event;
    return event.ParseFromString(serialisedEvent) ? typeOf(event) : "UNKNOWN_EVENT";
}

nlohmann::json AnalyticsStats::compute(Database &database)
{
    int64_t batches = 0, undecodable = 0, events = 0;
    std::set<std::string> installations;
    nlohmann::json byType = nlohmann::json::object();
    nlohmann::json byDay = nlohmann::json::object();
    auto guard = database.lock();
    SQLite::Statement rows(database.db(), "SELECT installation_id, body, received_at FROM analytics_batches");
    gale::GlintcameraEventBatch batch;
    while (rows.executeStep()) {
        ++batches;
        const SQLite::Column body = rows.getColumn(1);
        batch.Clear();
        if (!batch.ParseFromArray(body.getBlob(), body.getBytes())) {
            ++undecodable;
            continue;
        }
        installations.insert(rows.getColumn(0).getString());
        const int64_t receivedAt = rows.getColumn(2).getInt64();
        for (const gale::GlintcameraEvent &event : batch.events()) {
            ++events;
            const std::string type = typeOf(event);
            const int64_t clientMs = clientTsOf(event);
            // A client clock before 2000 or far ahead is not believed.
            const bool plausible = clientMs > 946684800000LL && clientMs / 1000 < receivedAt + 86400;
            const std::string day = dayOf(plausible ? clientMs / 1000 : receivedAt);
            byType[type] = byType.value(type, 0) + 1;
            nlohmann::json &perDay = byDay[day];
            if (!perDay.is_object())
                perDay = nlohmann::json::object();
            perDay["total"] = perDay.value("total", 0) + 1;
            perDay[type] = perDay.value(type, 0) + 1;
        }
    }
    return {{"batches", batches}, {"undecodable_batches", undecodable},
            {"events", events},   {"installations", installations.size()},
            {"by_type", byType},  {"by_day", byDay}};
}

int AnalyticsStats::run(const ServerConfig &config, const std::vector<std::string> &args)
{
    if (!args.empty()) {
        std::cerr << "stats takes no arguments besides the options\n";
        return 2;
    }
    const std::filesystem::path path = std::filesystem::path(config.dataDir) / "lenses.db";
    if (!std::filesystem::exists(path)) {
        std::cerr << "No server database at " << path.string() << "\n";
        return 1;
    }
    Database database(path.string());
    std::cout << compute(database).dump(2) << std::endl;
    return 0;
}

} // namespace glint::server
