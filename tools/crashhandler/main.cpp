// glint-crash-handler: the crash reporting side of Glint Camera, started by
// the application with one end of a socket as descriptor 3.
#include "handlersession.h"

#include <QCoreApplication>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sys/socket.h>

int main(int argc, char **argv)
{
    int socket = -1;
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::strcmp(argv[i], "--socket") == 0)
            socket = std::atoi(argv[i + 1]);
    }
    int type = 0;
    socklen_t length = sizeof type;
    if (socket < 0 || ::getsockopt(socket, SOL_SOCKET, SO_TYPE, &type, &length) != 0 ||
        type != SOCK_SEQPACKET) {
        std::cerr << "usage: glint-crash-handler --socket FD (started by Glint Camera)" << std::endl;
        return 2;
    }
    // Symbols come from the files on this machine only, never from the
    // network.
    ::unsetenv("DEBUGINFOD_URLS");
    // The terminal's interrupt and hang-up are for the application; this
    // program ends when the application's end of the socket closes.
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGHUP, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    QCoreApplication application(argc, argv); // the upload needs one
    CrashHandler::HandlerSession session(socket);
    return session.run();
}
