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
class Program
{
public:
    explicit Program(bool withSocket = true)
    {
        int sockets[2] = {-1, -1};
        ::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        if (withSocket)
            posix_spawn_file_actions_adddup2(&actions, sockets[1], 3);
        char program[] = GLINT_CRASH_HANDLER_PROGRAM;
        char option[] = "--socket";
        char descriptor[] = "3";
        char *argv[] = {program, option, descriptor, nullptr};
        spawned = ::posix_spawn(&pid, program, &actions, nullptr, argv, environ) == 0;
        posix_spawn_file_actions_destroy(&actions);
        ::close(sockets[1]);
        socket = sockets[0];
    }
    ~Program()
    {
        if (socket >= 0)
            ::close(socket);
        if (pid > 0 && !reaped) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, nullptr, 0);
        }
    }

    bool send(const void *data, size_t size) const
    {
        return ::send(socket, data, size, MSG_NOSIGNAL) == ssize_t(size);
    }
    void closeSocket()
    {
        ::close(socket);
        socket = -1;
    }
    // The exit code, or -1 when it did not end normally within the time.
    int exitCode(int timeoutMs)
    {
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < timeoutMs) {
            int status = 0;
            if (::waitpid(pid, &status, WNOHANG) == pid) {
                reaped = true;
                return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            }
            QTest::qWait(20);
        }
        return -1;
    }

    pid_t pid = 0;
    int socket = -1;
    bool spawned = false;
    bool reaped = false;
};

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
        Header wrongMagic;
        wrongMagic.magic = 0x12345678;
        wrongMagic.type = uint32_t(MessageType::Goodbye);
        QVERIFY(program.send(&wrongMagic, sizeof wrongMagic));
        Header newerVersion;
        newerVersion.version = kVersion + 1;
        newerVersion.type = uint32_t(MessageType::Goodbye);
        QVERIFY(program.send(&newerVersion, sizeof newerVersion));
        Header longerThanSent;
        longerThanSent.type = uint32_t(MessageType::Setting);
        longerThanSent.key = uint32_t(SettingKey::LogPath);
        longerThanSent.length = 1000;
        QVERIFY(program.send(&longerThanSent, sizeof longerThanSent));
        const std::string unknownKey = encodeSetting(SettingKey(99), "x");
        QVERIFY(program.send(unknownKey.data(), unknownKey.size()));
        // A crash message of the wrong size is no crash.
        CrashMessage crash;
        crash.header.type = uint32_t(MessageType::Crash);
        QVERIFY(program.send(&crash, sizeof crash - 8));
        // A setting longer than a packet is cut to the packet size.
        const std::string huge = encodeSetting(SettingKey::Description, std::string(4 * kMaxPacket, 'd'));
        QCOMPARE(huge.size(), kMaxPacket);
        QVERIFY(program.send(huge.data(), huge.size()));
        // Still listening: none of that ended it.
        QCOMPARE(program.exitCode(300), -1);

        Header goodbye;
        goodbye.type = uint32_t(MessageType::Goodbye);
        QVERIFY(program.send(&goodbye, sizeof goodbye));
        QCOMPARE(program.exitCode(5000), 0);
    }

    void endsWhenTheApplicationGoes()
    {
        Program program;
        QVERIFY(program.spawned);
        const std::string setting = encodeSetting(SettingKey::UploadUrl, "http://127.0.0.1:9/crash");
        QVERIFY(program.send(setting.data(), setting.size()));
        program.closeSocket();
        QCOMPARE(program.exitCode(5000), 0);
    }

    void refusesToRunWithoutItsSocket()
    {
        Program program(false);
        QVERIFY(program.spawned);
        QCOMPARE(program.exitCode(5000), 2);
    }
};

QTEST_MAIN(TestCrashHandlerProgram)
#include "tst_crashhandlerprogram.moc"
