#include "testlens.h"

#include "lenssigner.h"
#include "qrcodepng.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <sys/wait.h>

namespace fs = std::filesystem;

TempDir::TempDir()
{
    std::string pattern = (fs::temp_directory_path() / "glint-server-test-XXXXXX").string();
    m_path = mkdtemp(pattern.data());
}

TempDir::~TempDir()
{
    std::error_code ec;
    fs::remove_all(m_path, ec);
}

std::string readFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

void writeFile(const std::string &path, const std::string &content)
{
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
}

std::string writeLens(const std::string &parent, const TestLens &lens)
{
    const std::string dir = parent + "/" + lens.id;
    nlohmann::json frames = nlohmann::json::array();
    for (int i = 0; i < lens.frames; ++i) {
        const std::string name = "preview/" + std::to_string(i) + ".png";
        writeFile(dir + "/" + name,
                  glint::server::QrCodePng::render(lens.id + " frame " + std::to_string(i), 1));
        frames.push_back(name);
    }
    writeFile(dir + "/icon.png", glint::server::QrCodePng::render(lens.id + " icon", 1));
    writeFile(dir + "/shaders/effect.frag", "// " + lens.id + "\nvoid main() {}\n");
    const nlohmann::json manifest = {{"formatVersion", 1},
                                     {"id", lens.id},
                                     {"name", lens.name},
                                     {"author", lens.author},
                                     {"icon", "icon.png"},
                                     {"preview", {{"frames", frames}, {"frameIntervalMs", 80}}},
                                     {"hint", lens.hint},
                                     {"externalTriggers", {"trigger1"}},
                                     {"effects", nlohmann::json::array()}};
    writeFile(dir + "/lens.json", manifest.dump(2));
    return dir;
}

int runCommand(const std::string &command, std::string *output)
{
    FILE *pipe = popen(command.c_str(), "r");
    if (!pipe)
        return -1;
    std::string text;
    char buffer[4096];
    size_t n = 0;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0)
        text.append(buffer, n);
    const int status = pclose(pipe);
    if (output)
        *output = text;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::vector<std::string> lensIds(const nlohmann::json &answer)
{
    std::vector<std::string> ids;
    for (const auto &lens : answer.value("lenses", nlohmann::json::array()))
        ids.push_back(lens.at("unlockable_id"));
    return ids;
}

std::string makeKey(const std::string &dir)
{
    const std::string path = dir + "/key.pem";
    fs::create_directories(dir);
    glint::server::LensSigner::generateKey(path, nullptr);
    return path;
}
