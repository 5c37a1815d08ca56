#pragma once

#include <QObject>

namespace VCam {

// Installed as event filter on the main window. While recording, it takes
// the next key combination the user presses (for a hotkey field) and
// reports it as portable key sequence text instead of letting the window
// handle it. Escape cancels; Backspace reports an empty sequence (clear).
class KeyHelper : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool recording READ recording WRITE setRecording NOTIFY recordingChanged)
public:
    using QObject::QObject;

    bool recording() const { return m_recording; }
    void setRecording(bool recording);

    bool eventFilter(QObject *watched, QEvent *event) override;

signals:
    void recordingChanged();
    void keySequenceRecorded(const QString &sequence);

private:
    bool m_recording = false;
};

} // namespace VCam
