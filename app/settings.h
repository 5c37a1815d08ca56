#pragma once

#include <QString>
#include <nlohmann/json.hpp>

namespace VCam {

// settings.json: one object with a section per store, read over a defaults
// document. A file that cannot be parsed is kept beside the new one as
// "settings.json.bak" before anything is written over it, and every write
// goes to a temporary file that replaces the old one only when complete.
// The file is read with bounded nesting and size; a write that would not
// change the file is skipped.
class Settings
{
public:
    // fileName is relative to the per-user configuration directory unless absolute.
    Settings(const QString &fileName, const QString &defaultsResource);

    bool load();
    bool save();
    QString errorString() const { return m_error; }
    QString filePath() const { return m_path; }

    nlohmann::json section(const std::string &name) const;
    void setSection(const std::string &name, nlohmann::json value);

private:
    bool readDefaults();
    bool readFile();
    void keepUnreadableFile();

    QString m_path;
    QString m_defaultsResource;
    QString m_error;
    nlohmann::json m_document = nlohmann::json::object();
    std::string m_lastWritten;
};

} // namespace VCam
