#include "application.h"
#include "loghandler.h"
#include "singleinstanceguard.h"

#include <QFileInfo>
#include <QFont>
#include <QLoggingCategory>
#include <QMessageBox>
#include <glintdeployment.h>

namespace {

QString executableName(int argc, char **argv)
{
    return argc > 0 ? QFileInfo(QString::fromLocal8Bit(argv[0])).fileName() : QStringLiteral("glint-camera");
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setOrganizationName(QStringLiteral("Glint"));
    QCoreApplication::setApplicationName(QStringLiteral("Glint Camera"));
    qInfo() << "Application started";
    VCam::LogHandler::install();

    VCam::Application app(argc, argv);
    QApplication::setFont(QFont(QStringLiteral("Arial")));
    qInfo().noquote() << QStringLiteral("\nGlint Camera %1 (Qt %2)\n").arg(glint::kVersion, qVersion());

    VCam::SingleInstanceGuard guard(executableName(argc, argv));
    if (!guard.tryToRun()) {
        VCam::LogHandler::uninstall();
        guard.release();
        QMessageBox::information(
            nullptr, QString(),
            QObject::tr("Other instance of %0 is already running. Please use only one at a time.")
                .replace(QStringLiteral("%0"), QCoreApplication::applicationName()),
            QMessageBox::Ok);
        return 1;
    }
    app.init();
    const int result = app.exec();
    guard.release();
    return result;
}
