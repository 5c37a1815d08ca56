#include "handlersession.h"

#include "dumpwriter.h"
#include "processattacher.h"
#include "stackwalker.h"

#include <QElapsedTimer>
#include <QFile>
#include <cerrno>
#include <climits>
#include <crashreporter.h>
#include <cstring>
#include <iostream>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace CrashHandler {

namespace {

using namespace CrashReport::Protocol;

constexpr int kAttachTimeoutMs = 2000;
// With the attach limit and the unwinding this stays within the 8 seconds
// that the crashed process waits.
constexpr int kUploadTimeoutMs = 4000;
constexpr qint64 kMaxLogBytes = 8 * 1024 * 1024;

void note(const std::string &text)
{
    std::cerr << "glint-crash-handler: " << text << std::endl;
}

bool belongsTo(pid_t pid, pid_t tid)
{
    return tid > 0 &&
           ::access(("/proc/" + std::to_string(pid) + "/task/" + std::to_string(tid)).c_str(), F_OK) == 0;
}

std::string executableOf(pid_t pid)
{
    char path[PATH_MAX];
    const ssize_t length =
        ::readlink(("/proc/" + std::to_string(pid) + "/exe").c_str(), path, sizeof path - 1);
    return length > 0 ? std::string(path, size_t(length)) : std::string();
}

// The end of the log when it is very long: the latest lines matter most.
QString readLog(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    if (file.size() > kMaxLogBytes)
        file.seek(file.size() - kMaxLogBytes);
    return QString::fromUtf8(file.read(kMaxLogBytes));
}

// Replaces a file of ours through a temporary name, so that a reader never
// sees half of it. No sync to disk: the report must not wait for the disk.
bool replaceFile(const QString &path, const QByteArray &bytes)
{
    const QString temporary = path + QStringLiteral(".part");
    QFile file(temporary);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size()) {
        file.remove();
        return false;
    }
    file.close();
    QFile::remove(path);
    return QFile::rename(temporary, path);
}

} // namespace

HandlerSession::HandlerSession(int socket) : m_socket(socket)
{
    ucred credentials{};
    socklen_t length = sizeof credentials;
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &length) == 0)
        m_peer = credentials.pid;
}

std::string HandlerSession::setting(SettingKey key) const
{
    const auto found = m_settings.find(key);
    return found == m_settings.end() ? std::string() : found->second;
}

int HandlerSession::run()
{
    if (m_peer <= 0) {
        note("no application on the socket");
        return 2;
    }
    std::vector<char> packet(kMaxPacket);
    for (;;) {
        const ssize_t got = ::recv(m_socket, packet.data(), packet.size(), 0);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0) {
            // Gone without a goodbye (killed, or a crash its handlers could
            // not catch): the next start says it closed unexpectedly.
            writeState(kStateCrashed);
            return 0;
        }
        if (size_t(got) < sizeof(Header))
            continue;
        Header header;
        std::memcpy(&header, packet.data(), sizeof header);
        if (header.magic != kMagic || header.version != kVersion ||
            header.length > size_t(got) - sizeof header)
            continue;
        switch (MessageType(header.type)) {
        case MessageType::Setting:
            if (header.key >= uint32_t(SettingKey::LogPath) &&
                header.key <= uint32_t(SettingKey::Description))
                m_settings[SettingKey(header.key)] =
                    std::string(packet.data() + sizeof header, header.length);
            break;
        case MessageType::Crash:
            if (size_t(got) == sizeof(CrashMessage)) {
                CrashMessage message;
                std::memcpy(&message, packet.data(), sizeof message);
                handleCrash(message);
                return 0;
            }
            break;
        case MessageType::Goodbye:
            return 0;
        default:
            break;
        }
    }
}

void HandlerSession::handleCrash(const CrashMessage &message)
{
    QElapsedTimer clock;
    clock.start();
    ProcessSnapshot snapshot;
    snapshot.pid = m_peer;
    snapshot.executable = executableOf(m_peer);
    snapshot.signal = message.signal;
    snapshot.code = message.code;
    snapshot.faultAddress = message.faultAddress;
    snapshot.crashedThread = belongsTo(m_peer, message.threadId) ? message.threadId : 0;
    snapshot.reason = std::string(message.reason, ::strnlen(message.reason, sizeof message.reason));
    if (message.hasRegisters)
        snapshot.registers.assign(std::begin(message.registers), std::end(message.registers));
    snapshot.flags = message.flags;

    // The process stays stopped until the report is out: nothing of it runs
    // meanwhile.
    ProcessAttacher attacher(m_peer);
    std::string error;
    if (!attacher.attachAll(kAttachTimeoutMs, error))
        note("attaching failed: " + error);
    else if (!StackWalker::walk(snapshot, attacher.threads(), error))
        note("unwinding failed: " + error);
    std::string dump = DumpWriter::write(snapshot);
    if (!error.empty())
        dump += "\nincomplete: " + error + "\n";
    const qint64 dumpMs = clock.elapsed();

    const QString stateDir = QString::fromStdString(setting(SettingKey::StateDir));
    CrashReport::CrashReporter::Report report;
    report.url = QUrl(QString::fromStdString(setting(SettingKey::UploadUrl)));
    report.log = readLog(QString::fromStdString(setting(SettingKey::LogPath)));
    report.description = QString::fromStdString(setting(SettingKey::Description));
    report.userId = QString::fromStdString(setting(SettingKey::UserId));
    const QByteArray dumpBytes = QByteArray::fromStdString(dump);
    const QString dumpPath = stateDir + QLatin1Char('/') + QLatin1String(kDumpFileName);
    const bool dumpSaved = !stateDir.isEmpty() && replaceFile(dumpPath, dumpBytes);
    if (dumpBytes.size() > CrashReport::CrashReporter::kDumpBufferSize && dumpSaved)
        report.dumpPath = dumpPath;
    else
        report.dump = dumpBytes;

    QString uploadError;
    const bool sent = CrashReport::CrashReporter::sendReport(report, kUploadTimeoutMs, &uploadError);
    attacher.detachAll();
    writeState(sent ? kStateSent : kStateNotSent);
    note("crash of process " + std::to_string(m_peer) + ": dump of " +
         std::to_string(snapshot.threads.size()) + " threads in " + std::to_string(dumpMs) + " ms, report " +
         (sent ? "sent" : "not sent (" + uploadError.toStdString() + ")") + " after " +
         std::to_string(clock.elapsed()) + " ms");
    answer(sent);
}

void HandlerSession::writeState(const char *state) const
{
    const std::string dir = setting(SettingKey::StateDir);
    if (dir.empty())
        return;
    replaceFile(QString::fromStdString(dir + "/" + kStateFileName), QByteArray(state));
}

void HandlerSession::answer(bool sent)
{
    DoneMessage done;
    done.header.type = uint32_t(MessageType::Done);
    done.header.length = uint32_t(sizeof done - sizeof done.header);
    done.sent = sent ? 1 : 0;
    ::send(m_socket, &done, sizeof done, MSG_NOSIGNAL);
}

} // namespace CrashHandler
