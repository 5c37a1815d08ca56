#include "serverprocess.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <regex>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

std::string readAll(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

} // namespace

ServerProcess::ServerProcess(std::vector<std::string> args)
{
    char pattern[] = "/tmp/glint-server-log-XXXXXX";
    const int fd = mkstemp(pattern);
    m_logPath = pattern;
    // Any free port unless the caller names one (to come back on the same port).
    if (std::find(args.begin(), args.end(), "--port") == args.end())
        args.insert(args.end(), {"--port", "0"});
    args.insert(args.begin(), GLINT_TEST_SERVER_BIN);
    m_pid = fork();
    if (m_pid == 0) {
        dup2(fd, 1);
        dup2(fd, 2);
        std::vector<char *> argv;
        for (auto &arg : args)
            argv.push_back(arg.data());
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(fd);
    const std::regex listening("Listening on .* \\(port (\\d+)\\)");
    for (int i = 0; i < 200 && m_port == 0; ++i) {
        std::smatch match;
        const std::string text = output();
        if (std::regex_search(text, match, listening))
            m_port = std::stoi(match[1]);
        else if (waitpid(m_pid, nullptr, WNOHANG) == m_pid) {
            m_pid = -1;
            break;
        } else
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

ServerProcess::~ServerProcess()
{
    stop();
    std::remove(m_logPath.c_str());
}

int ServerProcess::stop()
{
    if (m_pid <= 0)
        return -1;
    kill(m_pid, SIGTERM);
    int status = 0;
    waitpid(m_pid, &status, 0);
    m_pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string ServerProcess::output() const
{
    return readAll(m_logPath);
}

long ServerProcess::statusField(const std::string &field) const
{
    const std::string status = readAll("/proc/" + std::to_string(m_pid) + "/status");
    const size_t at = status.find(field);
    return at == std::string::npos ? -1 : std::stol(status.substr(at + field.size()));
}
