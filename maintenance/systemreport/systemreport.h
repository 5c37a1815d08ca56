#pragma once

#include <QObject>
#include <QString>

namespace CrashReport {

// The description that goes with a crash report. The parts that need the
// GUI (screens, cameras) are read on the main thread at collect(); the
// OpenGL details come from a context of our renderer made on a thread of
// its own, and a second textChanged() follows when they are known.
class SystemReport : public QObject
{
    Q_OBJECT
public:
    struct OpenGlInfo
    {
        QString version = QStringLiteral("unknown");
        QString renderer = QStringLiteral("unknown");
        QString vendor = QStringLiteral("unknown");
        QString glslVersion = QStringLiteral("unknown");
    };

    explicit SystemReport(QObject *parent = nullptr);
    ~SystemReport() override;

    void collect();
    QString text() const;
    bool hasOpenGlInfo() const { return m_haveOpenGl; }

    // The renderer's details from a fresh context (blocking).
    static OpenGlInfo probeOpenGl();

signals:
    void textChanged(const QString &text);

private:
    QString systemPart() const;
    QString openGlPart() const;

    QString m_screens;
    QString m_rest;
    OpenGlInfo m_openGl;
    bool m_haveOpenGl = false;
    class Probe;
    Probe *m_probe = nullptr;
};

} // namespace CrashReport
