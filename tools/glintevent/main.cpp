// glint-event TYPE [DATA]: sends {"type": TYPE, "data": DATA} to the camera
// on this computer (127.0.0.1, port 8899 or GLINT_EVENT_PORT) and exits.
// DATA must be JSON; plain words are sent as a JSON string.
#include <QCoreApplication>
#include <QHostAddress>
#include <QTcpSocket>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace {

constexpr int kTimeoutMs = 3000;

int usage()
{
    std::fprintf(stderr, "usage: glint-event TYPE [DATA]\n"
                         "  Sends an event to the lens running in Glint Camera.\n"
                         "  TYPE  the event name, for example trigger1, subscribe or donate\n"
                         "  DATA  JSON for the lens, for example '{\"user_name\":\"ann\",\"amount\":100}'\n"
                         "  The port is 8899 unless GLINT_EVENT_PORT says otherwise.\n");
    return 2;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments().mid(1);
    if (args.isEmpty() || args.size() > 2 || args.first().startsWith(QLatin1Char('-')))
        return usage();

    nlohmann::json message{{"type", args.at(0).toStdString()}};
    if (args.size() == 2) {
        const std::string text = args.at(1).toStdString();
        auto data = nlohmann::json::parse(text, nullptr, false);
        message["data"] = data.is_discarded() ? nlohmann::json(text) : data;
    }
    const std::string bytes = message.dump() + "\n";
    if (bytes.size() > 64 * 1024) {
        std::fprintf(stderr, "glint-event: the event is larger than 64 KiB, which the camera refuses\n");
        return 1;
    }

    bool portOk = false;
    const quint16 port = qEnvironmentVariableIntValue("GLINT_EVENT_PORT", &portOk);
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, portOk ? port : 8899);
    if (!socket.waitForConnected(kTimeoutMs)) {
        std::fprintf(stderr, "glint-event: Glint Camera is not listening (%s)\n",
                     qPrintable(socket.errorString()));
        return 1;
    }
    socket.write(bytes.data(), qint64(bytes.size()));
    while (socket.bytesToWrite() > 0) {
        if (!socket.waitForBytesWritten(kTimeoutMs)) {
            std::fprintf(stderr, "glint-event: sending failed (%s)\n", qPrintable(socket.errorString()));
            return 1;
        }
    }
    socket.disconnectFromHost();
    if (socket.state() != QAbstractSocket::UnconnectedState)
        socket.waitForDisconnected(kTimeoutMs);
    return 0;
}
