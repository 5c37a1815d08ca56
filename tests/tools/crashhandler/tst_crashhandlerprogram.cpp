// The crash handler program meets whatever arrives on its socket: damaged
// and oversized packets are dropped, and it ends with the application
// (the socket's other end closing or saying goodbye), never hanging.
#include <QElapsedTimer>
#include <QtTest>
#include <crashprotocol.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace {

using namespace CrashReport::Protocol;

// The program started as the application starts it, with our end of the
// socket pair kept here.
struct Program
{
    pid_t pid = 0;
    int socket = -1;
    bool spawned = false;

    explicit Program(bool withSocket = true)
    {
        int sockets[2] = {-1, -1};
        ::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        if (withSocket)
            posix_spawn_file_actions_adddup2(&actions, sockets[1], 3);
        char program[] = GLINT_CRASH_HANDLER_PROGRAM, option[] = "--socket", descriptor[] = "3";
        char *argv[] = {program, option, descriptor, nullptr};
        spawned = ::posix_spawn(&pid, program, &actions, nullptr, argv, environ) == 0;
        posix_spawn_file_actions_destroy(&actions);
        ::close(sockets[1]);
        socket = sockets[0];
    }
    ~Program()
    {
        ::close(socket);
        if (pid > 0) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, nullptr, 0);
        }
    }
    bool send(const void *data, size_t size) const
    {
        return ::send(socket, data, size, MSG_NOSIGNAL) == ssize_t(size);
    }
    bool send(const std::string &packet) const { return send(packet.data(), packet.size()); }
    // The exit code, or -1 when it did not end normally within the time.
    int exitCode(int timeoutMs)
    {
        QElapsedTimer clock;
        clock.start();
        for (int status = 0; clock.elapsed() < timeoutMs; QTest::qWait(20)) {
            if (::waitpid(pid, &status, WNOHANG) == pid) {
                pid = 0;
                return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            }
        }
        return -1;
    }
};

Header header(MessageType type)
{
    Header header;
    header.type = uint32_t(type);
    return header;
}

} // namespace

class TestCrashHandlerProgram : public QObject
{
    Q_OBJECT

private slots:
    void damagedPacketsAreDropped()
    {
        Program program;
        QVERIFY(program.spawned);
        QVERIFY(program.send("xy", 2));
        Header wrongMagic = header(MessageType::Goodbye), newerVersion = wrongMagic;
        wrongMagic.magic = 0x12345678;
        newerVersion.version = kVersion + 1;
        Header longerThanSent = header(MessageType::Setting);
        longerThanSent.key = uint32_t(SettingKey::LogPath);
        longerThanSent.length = 1000;
        for (const Header &packet : {wrongMagic, newerVersion, longerThanSent})
            QVERIFY(program.send(&packet, sizeof packet));
        QVERIFY(program.send(encodeSetting(SettingKey(99), "x")));
        // A crash message of the wrong size is no crash.
        CrashMessage crash;
        crash.header.type = uint32_t(MessageType::Crash);
        QVERIFY(program.send(&crash, sizeof crash - 8));
        // A setting longer than a packet is cut to the packet size.
        const std::string huge = encodeSetting(SettingKey::Description, std::string(4 * kMaxPacket, 'd'));
        QCOMPARE(huge.size(), kMaxPacket);
        QVERIFY(program.send(huge));
        // Still listening: none of that ended it.
        QCOMPARE(program.exitCode(300), -1);
        const Header goodbye = header(MessageType::Goodbye);
        QVERIFY(program.send(&goodbye, sizeof goodbye));
        QCOMPARE(program.exitCode(5000), 0);
    }

    void endsWhenTheApplicationGoesAndNeedsItsSocket()
    {
        Program program;
        QVERIFY(program.spawned);
        QVERIFY(program.send(encodeSetting(SettingKey::UploadUrl, "http://127.0.0.1:9/crash")));
        ::close(program.socket);
        program.socket = -1;
        QCOMPARE(program.exitCode(5000), 0);

        Program without(false);
        QVERIFY(without.spawned);
        QCOMPARE(without.exitCode(5000), 2);
    }
};

QTEST_MAIN(TestCrashHandlerProgram)
#include "tst_crashhandlerprogram.moc"
