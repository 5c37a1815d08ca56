#pragma once

// Runs a QtTest object against the whole application built in this process,
// then lets the program shut down the way it does for a user (closing the
// window stops the stores and the processing thread). Fails when the
// shutdown does not finish within 15 s.
#include <QGuiApplication>
#include <QQuickItem>
#include <QTest>
#include <QTimer>
#include <QWindow>
#include <application.h>

template <typename Test> int runInApplication(int argc, char **argv)
{
    QCoreApplication::setOrganizationName(QStringLiteral("Glint"));
    QCoreApplication::setApplicationName(QStringLiteral("Glint Camera"));
    VCam::Application app(argc, argv);
    app.init();
    Test test(&app);
    const int result = QTest::qExec(&test, argc, argv);
    QTimer::singleShot(0, [] {
        for (QWindow *window : QGuiApplication::topLevelWindows())
            window->close();
    });
    QTimer::singleShot(15000, [] { QCoreApplication::exit(3); });
    if (app.exec() != 0) {
        qWarning("The program did not shut down in time");
        return 1;
    }
    return result;
}

// An item of a window by its objectName, searched in the visual tree:
// delegates made by views and repeaters are not QObject children of the page.
inline QQuickItem *findQuickItem(QQuickItem *root, const QString &name)
{
    if (!root)
        return nullptr;
    if (root->objectName() == name)
        return root;
    for (QQuickItem *child : root->childItems())
        if (QQuickItem *found = findQuickItem(child, name))
            return found;
    return nullptr;
}
