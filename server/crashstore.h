#pragma once

#include "multipartform.h"

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace glint::server {

class Database;

// The crash folder (<data>/crashes): one folder per report, one file per
// part, one row per report in crash_reports. The folder stays within its
// quota: before a report is written, the oldest reports (rows and their
// folders) are removed until the new one fits. Only folders this store
// recorded are ever removed.
class CrashStore
{
public:
    CrashStore(Database &database, std::string folder, uint64_t quotaBytes);

    // Stores a report; returns its id, or -1 with a reason (too large for
    // the quota, the disk refused).
    int64_t store(const std::string &path, const std::vector<FormPart> &parts, std::string *error);
    // Bytes held by stored reports.
    uint64_t usedBytes();

    const std::string &folder() const { return m_folder; }
    uint64_t quota() const { return m_quota; }

private:
    bool makeRoom(uint64_t bytes);
    void forget(int64_t id, const std::string &folder);
    std::string uniqueName();

    Database &m_database;
    std::string m_folder;
    uint64_t m_quota;
    std::mutex m_mutex; // one report stored at a time keeps the quota exact
};

} // namespace glint::server
