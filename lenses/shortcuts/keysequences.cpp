#include "keysequences.h"

#include <QHash>
#include <QStringList>

namespace VCam::KeySequences {

namespace {
const QString kShifted = QStringLiteral("!@#$%^&*()_+");
const QString kUnshifted = QStringLiteral("1234567890-=");
} // namespace

QKeySequence normalized(const QKeySequence &sequence)
{
    if (sequence.isEmpty())
        return sequence;
    const QString text = sequence.toString(QKeySequence::PortableText);
    QStringList parts = text.split(QLatin1Char('+'), Qt::SkipEmptyParts);
    if (text.endsWith(QLatin1Char('+')))
        parts.append(QStringLiteral("+"));
    if (parts.isEmpty())
        return sequence;
    const int position = kShifted.indexOf(parts.last().at(0));
    if (position < 0)
        return sequence;
    parts.last() = kUnshifted.at(position);
    return QKeySequence::fromString(parts.join(QLatin1Char('+')), QKeySequence::PortableText);
}

HotkeyChord toChord(const QKeySequence &sequence)
{
    HotkeyChord chord;
    if (sequence.count() != 1)
        return chord;
    const int combined = sequence[0];
    const int key = combined & ~int(Qt::KeyboardModifierMask);
    const auto modifiers = Qt::KeyboardModifiers(combined & int(Qt::KeyboardModifierMask));
    if (modifiers & Qt::ShiftModifier)
        chord.modifiers |= HotkeyChord::Shift;
    if (modifiers & Qt::ControlModifier)
        chord.modifiers |= HotkeyChord::Control;
    if (modifiers & Qt::AltModifier)
        chord.modifiers |= HotkeyChord::Alt;
    if (modifiers & Qt::MetaModifier)
        chord.modifiers |= HotkeyChord::Meta;

    using Named = HotkeyChord::Named;
    if (key >= Qt::Key_F1 && key <= Qt::Key_F24) {
        chord.named = Named(int(Named::F1) + (key - Qt::Key_F1));
        return chord;
    }
    if (key > 0x20 && key < 0x7f) {
        chord.character = char32_t(key);
        return chord;
    }
    static const QHash<int, Named> named{
        {Qt::Key_Escape, Named::Escape},
        {Qt::Key_Tab, Named::Tab},
        {Qt::Key_Backspace, Named::Backspace},
        {Qt::Key_Return, Named::Return},
        {Qt::Key_Enter, Named::Enter},
        {Qt::Key_Insert, Named::Insert},
        {Qt::Key_Delete, Named::Delete},
        {Qt::Key_Pause, Named::Pause},
        {Qt::Key_Print, Named::Print},
        {Qt::Key_Home, Named::Home},
        {Qt::Key_End, Named::End},
        {Qt::Key_Left, Named::Left},
        {Qt::Key_Up, Named::Up},
        {Qt::Key_Right, Named::Right},
        {Qt::Key_Down, Named::Down},
        {Qt::Key_PageUp, Named::PageUp},
        {Qt::Key_PageDown, Named::PageDown},
        {Qt::Key_Space, Named::Space},
        {Qt::Key_Menu, Named::Menu},
    };
    chord.named = named.value(key, Named::None);
    return chord;
}

QKeySequence fromKeyPress(int key, Qt::KeyboardModifiers modifiers)
{
    switch (key) {
    case Qt::Key_Shift:
    case Qt::Key_Control:
    case Qt::Key_Alt:
    case Qt::Key_Meta:
    case Qt::Key_AltGr:
    case Qt::Key_unknown:
        return {};
    default:
        return QKeySequence(int(modifiers & ~Qt::KeypadModifier) | key);
    }
}

} // namespace VCam::KeySequences
