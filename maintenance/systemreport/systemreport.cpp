#include "systemreport.h"

#include <GLES3/gl3.h>
#include <QCameraInfo>
#include <QFile>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QScreen>
#include <QSysInfo>
#include <QThread>
#include <orb/glcontext.h>

Q_LOGGING_CATEGORY(lcSystemReport, "glint.crash.systemreport")

namespace CrashReport {

namespace {

QString glString(GLenum name)
{
    const GLubyte *value = glGetString(name);
    return value ? QString::fromLatin1(reinterpret_cast<const char *>(value)) : QStringLiteral("unknown");
}

QString sizeText(const QSizeF &size)
{
    return QStringLiteral("(%1, %2)").arg(size.width()).arg(size.height());
}

QString screensText()
{
    QString text;
    for (QScreen *screen : QGuiApplication::screens()) {
        text += QStringLiteral("Name: %1\n").arg(screen->name());
        text += QStringLiteral("Manufacturer: %1\n").arg(screen->manufacturer());
        text += QStringLiteral("Model: %1\n").arg(screen->model());
        text += QStringLiteral("Logical DPI: %1\n").arg(screen->logicalDotsPerInch());
        text += QStringLiteral("Physical DPI: %1\n").arg(screen->physicalDotsPerInch());
        text += QStringLiteral("Physical size: %1\n").arg(sizeText(screen->physicalSize()));
        text += QStringLiteral("Virtual size: %1\n").arg(sizeText(screen->virtualSize()));
    }
    return text;
}

// The processor's model name where the system tells it, else its
// architecture; with the number of logical processors.
QString cpuText()
{
    QString name;
    QFile cpuinfo(QStringLiteral("/proc/cpuinfo"));
    if (cpuinfo.open(QIODevice::ReadOnly)) {
        const QList<QByteArray> lines = cpuinfo.read(256 * 1024).split('\n');
        for (const QByteArray &line : lines) {
            if (line.startsWith("model name")) {
                name = QString::fromUtf8(line.mid(line.indexOf(':') + 1).trimmed());
                break;
            }
        }
    }
    if (name.isEmpty())
        name = QSysInfo::currentCpuArchitecture();
    return QStringLiteral("%1, %2 logical processors").arg(name).arg(QThread::idealThreadCount());
}

QString camerasText()
{
    const QList<QCameraInfo> cameras = QCameraInfo::availableCameras();
    QString text = QStringLiteral("\nNumber of connected cameras: %1\n").arg(cameras.size());
    for (int i = 0; i < cameras.size(); ++i) {
        text += QStringLiteral("Camera %1\n").arg(i + 1);
        text += QStringLiteral("Device Name: %1\n").arg(cameras[i].deviceName());
        text += QStringLiteral("Description: %1\n").arg(cameras[i].description());
        text += QStringLiteral("Orientation: %1\n").arg(cameras[i].orientation());
    }
    return text;
}

} // namespace

// Runs the OpenGL probe away from the main thread; the result comes back as
// a queued call.
class SystemReport::Probe : public QThread
{
public:
    explicit Probe(SystemReport *report) : m_report(report) {}
    void run() override
    {
        const OpenGlInfo info = probeOpenGl();
        QMetaObject::invokeMethod(m_report, [report = m_report, info] {
            report->m_openGl = info;
            report->m_haveOpenGl = true;
            emit report->textChanged(report->text());
            qCInfo(lcSystemReport).noquote() << "System report ready; renderer:" << info.renderer;
        });
    }

private:
    SystemReport *m_report;
};

SystemReport::SystemReport(QObject *parent) : QObject(parent) {}

SystemReport::~SystemReport()
{
    if (m_probe) {
        m_probe->wait();
        delete m_probe;
    }
}

SystemReport::OpenGlInfo SystemReport::probeOpenGl()
{
    OpenGlInfo info;
    Orb::GlContext context;
    std::string error;
    if (!context.create(error)) {
        info.version = QStringLiteral("unavailable: %1").arg(QString::fromStdString(error));
        return info;
    }
    info.version = glString(GL_VERSION);
    info.renderer = glString(GL_RENDERER);
    info.vendor = glString(GL_VENDOR);
    info.glslVersion = glString(GL_SHADING_LANGUAGE_VERSION);
    return info;
}

void SystemReport::collect()
{
    m_screens = screensText();
    m_rest = systemPart();
    emit textChanged(text());
    if (!m_probe) {
        m_probe = new Probe(this);
        m_probe->start(QThread::LowPriority);
    }
}

QString SystemReport::openGlPart() const
{
    return QStringLiteral("OpenGL Info:\nGL Version: %1\nRenderer: %2\nVendor: %3\nGLSL Version: %4\n")
        .arg(m_openGl.version, m_openGl.renderer, m_openGl.vendor, m_openGl.glslVersion);
}

QString SystemReport::systemPart() const
{
    QString text;
    text += QStringLiteral("OS Type: %1\n").arg(QSysInfo::productType());
    text += QStringLiteral("OS Version: %1 (kernel %2)\n")
                .arg(QSysInfo::productVersion(), QSysInfo::kernelVersion());
    text += QStringLiteral("CPU Info: %1\n").arg(cpuText());
    text += camerasText();
    text += QStringLiteral("\nNumber of connected displays: %1\n").arg(QGuiApplication::screens().size());
    text += QStringLiteral("QSysInfo report:\n");
    text += QStringLiteral("Build Abi: %1\n").arg(QSysInfo::buildAbi());
    text += QStringLiteral("Build CPU Arch: %1\n").arg(QSysInfo::buildCpuArchitecture());
    text += QStringLiteral("Build Kernel type: %1\n").arg(QSysInfo::kernelType());
    text += QStringLiteral("Current CPU Architecture: %1\n").arg(QSysInfo::currentCpuArchitecture());
    text += QStringLiteral("Pretty OS String: %1\n").arg(QSysInfo::prettyProductName());
    return text;
}

QString SystemReport::text() const
{
    return m_screens + openGlPart() + m_rest;
}

} // namespace CrashReport
