#pragma once

#include <crashprotocol.h>
#include <map>
#include <string>
#include <sys/types.h>

namespace CrashHandler {

// One application's connection: collects the report context it sends at
// start, and when a crash message arrives stops the process, writes the
// dump, uploads the report, lets the process go and answers.
class HandlerSession
{
public:
    explicit HandlerSession(int socket);

    // Runs until the application goes away or a crash has been reported.
    // The program's exit code.
    int run();

private:
    void handleCrash(const CrashReport::Protocol::CrashMessage &message);
    std::string setting(CrashReport::Protocol::SettingKey key) const;
    void writeState(const char *state) const;
    void answer(bool sent);

    int m_socket;
    pid_t m_peer = 0;
    std::map<CrashReport::Protocol::SettingKey, std::string> m_settings;
};

} // namespace CrashHandler
