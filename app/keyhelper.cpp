#include "keyhelper.h"

#include <QKeyEvent>
#include <QKeySequence>

namespace VCam {

namespace {

bool isModifierKey(int key)
{
    return key == Qt::Key_Shift || key == Qt::Key_Control || key == Qt::Key_Alt || key == Qt::Key_Meta ||
           key == Qt::Key_AltGr || key == Qt::Key_unknown;
}

} // namespace

void KeyHelper::setRecording(bool recording)
{
    if (m_recording == recording)
        return;
    m_recording = recording;
    emit recordingChanged();
}

bool KeyHelper::eventFilter(QObject *watched, QEvent *event)
{
    if (!m_recording || event->type() != QEvent::KeyPress)
        return QObject::eventFilter(watched, event);
    const auto *keyEvent = static_cast<QKeyEvent *>(event);
    const int key = keyEvent->key();
    if (isModifierKey(key))
        return true;
    setRecording(false);
    if (key == Qt::Key_Escape && keyEvent->modifiers() == Qt::NoModifier)
        return true;
    // Backspace alone clears the field: an empty sequence.
    if (key == Qt::Key_Backspace && keyEvent->modifiers() == Qt::NoModifier) {
        emit keySequenceRecorded(QString());
        return true;
    }
    const QKeySequence sequence(static_cast<int>(keyEvent->modifiers() & ~Qt::KeypadModifier) | key);
    emit keySequenceRecorded(sequence.toString(QKeySequence::PortableText));
    return true;
}

} // namespace VCam
