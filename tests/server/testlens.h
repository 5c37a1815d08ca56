#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

// Temporary folders and small lens folders for the server tests.
class TempDir
{
public:
    TempDir();
    ~TempDir();
    const std::string &path() const { return m_path; }
    std::string operator/(const std::string &child) const { return m_path + "/" + child; }

private:
    std::string m_path;
};

struct TestLens
{
    std::string id;
    std::string name;
    std::string author = "Glint Tests";
    std::string hint;
    int frames = 2;
};

// Writes <parent>/<id>/ with lens.json, icon.png, preview frames and a shader.
std::string writeLens(const std::string &parent, const TestLens &lens);
std::string readFile(const std::string &path);
void writeFile(const std::string &path, const std::string &content);
// Runs a shell command; returns its exit status and standard output.
int runCommand(const std::string &command, std::string *output = nullptr);
// The ids of the lens records in an answer, in order.
std::vector<std::string> lensIds(const nlohmann::json &answer);
// A fresh P-384 key in dir/key.pem.
std::string makeKey(const std::string &dir);
