#include "application.h"
#include "loghandler.h"
#include "singleinstanceguard.h"

#include <QFileInfo>
#include <QFont>
#include <QLoggingCategory>
#include <QMessageBox>
#include <crashreporter.h>
#include <glintdeployment.h>
#include <systemreport.h>

#ifdef GLINT_CRASH_TRIGGER
#include <crashtrigger.h> // test builds only: crashes on request
#endif

namespace {

// Created before the entry function runs, so that its handlers catch a
// crash from the first moment on.
CrashReport::CrashReporter g_crashReporter;

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
    g_crashReporter.start(VCam::LogHandler::filePath());

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
    auto *systemReport = new CrashReport::SystemReport(&app);
    QObject::connect(systemReport, &CrashReport::SystemReport::textChanged, &app,
                     [](const QString &text) { g_crashReporter.setDescription(text); });
    systemReport->collect();
    const auto previousRun = CrashReport::CrashReporter::takePreviousRun();
    if (previousRun != CrashReport::CrashReporter::PreviousRun::Clean)
        app.showPreviousCrash(previousRun == CrashReport::CrashReporter::PreviousRun::CrashReported);
#ifdef GLINT_CRASH_TRIGGER
    CrashTrigger::armFromEnvironment(&app);
#endif
    const int result = app.exec();
    guard.release();
    return result;
}
