#include "keyboardshortcutmanager.h"

#include "hotkeygrabber.h"
#include "keysequences.h"

#include <QKeyEvent>
#include <QLoggingCategory>
#include <QMetaEnum>
#include <QSocketNotifier>
#include <QTimer>

Q_LOGGING_CATEGORY(lcShortcuts, "glint.shortcuts")

namespace VCam {

namespace {

const char *const kRoleShortcuts = "role_shortcuts";
const char *const kLensShortcuts = "lenses_shortcuts";

QString roleName(ShortcutRole role)
{
    switch (role) {
    case ShortcutRole::Crash:
        return KeyboardShortcutManager::tr("Crash on purpose");
    case ShortcutRole::ToggleLens:
        return KeyboardShortcutManager::tr("Lens on and off");
    case ShortcutRole::ToggleGlintcode:
        return KeyboardShortcutManager::tr("Show or hide the Glintcode");
    case ShortcutRole::ExternalEvent:
        return KeyboardShortcutManager::tr("Send test event");
    case ShortcutRole::TapEvent:
        return KeyboardShortcutManager::tr("Tap");
    case ShortcutRole::EmulateSubscription:
        return KeyboardShortcutManager::tr("Test subscription");
    }
    return QString::number(int(role));
}

bool isRole(int value)
{
    return QMetaEnum::fromType<ShortcutRole>().valueToKey(value) != nullptr;
}

} // namespace

KeyboardShortcutManager::KeyboardShortcutManager(QObject *parent)
    : IKeyboardShortcutManager(parent),
      m_grabber(HotkeyGrabber::create([this](int id) { onGrabActivated(id); }))
{
    if (!m_grabber->isAvailable()) {
        qCWarning(lcShortcuts).noquote() << "System-wide hotkeys are not available:"
                                         << QString::fromStdString(m_grabber->unavailableReason());
        return;
    }
    const int descriptor = m_grabber->eventDescriptor();
    if (descriptor >= 0) {
        m_notifier = new QSocketNotifier(descriptor, QSocketNotifier::Read, this);
        connect(m_notifier, &QSocketNotifier::activated, this, [this] {
            m_grabber->processEvents();
            if (m_grabber->eventDescriptor() < 0) {
                qCWarning(lcShortcuts) << "The X11 display closed the hotkey connection";
                m_notifier->setEnabled(false);
            }
        });
    }
}

KeyboardShortcutManager::~KeyboardShortcutManager()
{
    clearAll();
    delete m_notifier;
    m_notifier = nullptr;
    m_grabber.reset(); // gives back every grab before the connection closes
}

KeyboardShortcutManager::Key KeyboardShortcutManager::keyOf(const QKeySequence &sequence)
{
    return sequence.toString(QKeySequence::PortableText);
}

void KeyboardShortcutManager::setShortcut(ShortcutRole role, const QKeySequence &sequence)
{
    const QKeySequence normal = KeySequences::normalized(sequence);
    const auto current = m_roles.find(role);
    if (current != m_roles.end()) {
        if (current->second == normal)
            return;
        release(current->second);
        m_roles.erase(current);
    }
    if (normal.isEmpty())
        return;
    takeOver(normal);
    m_roles[role] = normal;
    bind(normal);
}

void KeyboardShortcutManager::removeShortcut(ShortcutRole role)
{
    setShortcut(role, QKeySequence());
}

QKeySequence KeyboardShortcutManager::shortcut(ShortcutRole role) const
{
    const auto found = m_roles.find(role);
    return found == m_roles.end() ? QKeySequence() : found->second;
}

void KeyboardShortcutManager::setLensShortcut(const LensId &lensId, const QKeySequence &sequence)
{
    const QKeySequence normal = KeySequences::normalized(sequence);
    const auto current = m_lenses.find(lensId);
    if (current != m_lenses.end()) {
        if (current->second == normal)
            return;
        release(current->second);
        m_lenses.erase(current);
    }
    if (normal.isEmpty())
        return;
    takeOver(normal);
    m_lenses[lensId] = normal;
    bind(normal);
}

void KeyboardShortcutManager::removeLensShortcut(const LensId &lensId)
{
    setLensShortcut(lensId, QKeySequence());
}

QKeySequence KeyboardShortcutManager::lensShortcut(const LensId &lensId) const
{
    const auto found = m_lenses.find(lensId);
    return found == m_lenses.end() ? QKeySequence() : found->second;
}

bool KeyboardShortcutManager::isAvailable(const QKeySequence &sequence) const
{
    return m_hotkeys.count(keyOf(KeySequences::normalized(sequence))) == 0;
}

// Clears whichever role or lens holds the sequence now.
void KeyboardShortcutManager::takeOver(const QKeySequence &sequence)
{
    QString previousOwner;
    for (auto it = m_roles.begin(); it != m_roles.end(); ++it) {
        if (it->second == sequence) {
            previousOwner = roleName(it->first);
            m_roles.erase(it);
            break;
        }
    }
    for (auto it = m_lenses.begin(); previousOwner.isEmpty() && it != m_lenses.end(); ++it) {
        if (it->second == sequence) {
            previousOwner = tr("the lens %1").arg(it->first);
            m_lenses.erase(it);
            break;
        }
    }
    if (previousOwner.isEmpty())
        return;
    release(sequence);
    const QString text = sequence.toString(QKeySequence::NativeText);
    qCInfo(lcShortcuts).noquote() << text << "moves from" << previousOwner;
    emit shortcutTakenOver(text, previousOwner);
}

void KeyboardShortcutManager::bind(const QKeySequence &sequence)
{
    Hotkey hotkey;
    hotkey.id = m_nextId++;
    grab(sequence, hotkey);
    m_hotkeys[keyOf(sequence)] = hotkey;
    drainEvents();
}

void KeyboardShortcutManager::grab(const QKeySequence &sequence, Hotkey &hotkey)
{
    if (!m_grabber->isAvailable() || m_suspended) {
        hotkey.state = GrabState::Unavailable;
        return;
    }
    const HotkeyChord chord = KeySequences::toChord(sequence);
    if (!chord.isValid()) {
        hotkey.state = GrabState::UnknownKey;
    } else {
        switch (m_grabber->grab(hotkey.id, chord)) {
        case HotkeyGrabber::Result::Grabbed:
            hotkey.state = GrabState::Grabbed;
            break;
        case HotkeyGrabber::Result::TakenByOtherProgram:
            hotkey.state = GrabState::TakenByOtherProgram;
            break;
        case HotkeyGrabber::Result::UnknownKey:
            hotkey.state = GrabState::UnknownKey;
            break;
        case HotkeyGrabber::Result::Unavailable:
            hotkey.state = GrabState::Unavailable;
            break;
        }
    }
    // Grabbing again after a recorder paused the grabs repeats the answer;
    // the log says each trouble of a binding once.
    if (hotkey.state == hotkey.logged || hotkey.state == GrabState::Grabbed)
        return;
    hotkey.logged = hotkey.state;
    const QString text = sequence.toString(QKeySequence::NativeText);
    if (hotkey.state == GrabState::TakenByOtherProgram)
        qCWarning(lcShortcuts).noquote() << text << "is taken by another program";
    else if (hotkey.state == GrabState::UnknownKey)
        qCWarning(lcShortcuts).noquote() << text << "cannot be a system-wide hotkey";
}

void KeyboardShortcutManager::setSuspended(bool suspended)
{
    if (m_suspended == suspended || !m_grabber->isAvailable())
        return;
    m_suspended = suspended;
    for (auto &[key, hotkey] : m_hotkeys) {
        if (suspended) {
            if (hotkey.state == GrabState::Grabbed)
                m_grabber->release(hotkey.id);
            hotkey.state = GrabState::Unavailable;
        } else {
            grab(QKeySequence::fromString(key, QKeySequence::PortableText), hotkey);
        }
    }
    drainEvents();
}

void KeyboardShortcutManager::release(const QKeySequence &sequence)
{
    const auto found = m_hotkeys.find(keyOf(sequence));
    if (found == m_hotkeys.end())
        return;
    if (found->second.state == GrabState::Grabbed)
        m_grabber->release(found->second.id);
    m_hotkeys.erase(found);
}

void KeyboardShortcutManager::clearAll()
{
    for (const auto &entry : m_hotkeys)
        if (entry.second.state == GrabState::Grabbed)
            m_grabber->release(entry.second.id);
    m_hotkeys.clear();
    m_roles.clear();
    m_lenses.clear();
}

// Waiting for a grab's answer may have read key events off the connection,
// where the descriptor no longer announces them.
void KeyboardShortcutManager::drainEvents()
{
    if (m_notifier)
        QTimer::singleShot(0, this, [this] { m_grabber->processEvents(); });
}

void KeyboardShortcutManager::onGrabActivated(int id)
{
    for (const auto &entry : m_hotkeys) {
        if (entry.second.id == id) {
            activate(entry.first);
            return;
        }
    }
}

void KeyboardShortcutManager::activate(const QString &key)
{
    for (const auto &[role, sequence] : m_roles) {
        if (keyOf(sequence) == key) {
            emit shortcutActivated(role);
            return;
        }
    }
    for (const auto &[lensId, sequence] : m_lenses) {
        if (keyOf(sequence) == key) {
            emit lensShortcutActivated(lensId);
            return;
        }
    }
}

// Inside the window every binding works, also those the system refused;
// a grabbed key never reaches the window, so nothing fires twice.
bool KeyboardShortcutManager::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() != QEvent::KeyPress)
        return IKeyboardShortcutManager::eventFilter(watched, event);
    const auto *press = static_cast<QKeyEvent *>(event);
    if (press->isAutoRepeat())
        return false;
    const QKeySequence sequence =
        KeySequences::normalized(KeySequences::fromKeyPress(press->key(), press->modifiers()));
    const auto found = m_hotkeys.find(keyOf(sequence));
    if (sequence.isEmpty() || found == m_hotkeys.end() || found->second.state == GrabState::Grabbed)
        return false;
    activate(found->first);
    return true;
}

bool KeyboardShortcutManager::isSystemWide() const
{
    return m_grabber->isAvailable();
}

QString KeyboardShortcutManager::unavailableReason() const
{
    return QString::fromStdString(m_grabber->unavailableReason());
}

QString KeyboardShortcutManager::problem(const QKeySequence &sequence) const
{
    const QKeySequence normal = KeySequences::normalized(sequence);
    const auto found = m_hotkeys.find(keyOf(normal));
    if (found == m_hotkeys.end())
        return {};
    const QString text = normal.toString(QKeySequence::NativeText);
    switch (found->second.state) {
    case GrabState::TakenByOtherProgram:
        return tr("%1 is taken by another program").arg(text);
    case GrabState::UnknownKey:
        return tr("%1 cannot be a system-wide hotkey").arg(text);
    case GrabState::Grabbed:
    case GrabState::Unavailable:
        break;
    }
    return {};
}

void KeyboardShortcutManager::loadSettings(const nlohmann::json &shortcuts)
{
    clearAll();
    std::vector<std::pair<ShortcutRole, QKeySequence>> roles;
    std::vector<std::pair<LensId, QKeySequence>> lenses;
    const auto sequenceOf = [](const nlohmann::json &element) {
        return QKeySequence::fromString(QString::fromStdString(element.at("shortcut").get<std::string>()),
                                        QKeySequence::PortableText);
    };
    const auto arrayAt = [&](const char *key) {
        if (!shortcuts.is_object() || !shortcuts.contains(key))
            return nlohmann::json::array();
        const auto &value = shortcuts.at(key);
        if (!value.is_array())
            throw std::invalid_argument(std::string("\"") + key + "\" is not an array");
        return value;
    };
    try {
        for (const auto &element : arrayAt(kRoleShortcuts)) {
            const auto &role = element.at("role");
            if (!role.is_number_integer() || !isRole(role.get<int>()))
                throw std::invalid_argument("a \"role\" is not the number of a shortcut role");
            roles.emplace_back(ShortcutRole(role.get<int>()), sequenceOf(element));
        }
        for (const auto &element : arrayAt(kLensShortcuts))
            lenses.emplace_back(QString::fromStdString(element.at("lens_id").get<std::string>()),
                                sequenceOf(element));
    } catch (const std::exception &error) {
        qCWarning(lcShortcuts).noquote() << "Shortcut settings couldn't be loaded. Reason:" << error.what();
        return;
    }
    for (const auto &[role, sequence] : roles)
        setShortcut(role, sequence);
    for (const auto &[lensId, sequence] : lenses)
        setLensShortcut(lensId, sequence);
}

nlohmann::json KeyboardShortcutManager::saveSettings() const
{
    nlohmann::json roles = nlohmann::json::array();
    for (const auto &[role, sequence] : m_roles)
        roles.push_back({{"role", int(role)}, {"shortcut", keyOf(sequence).toStdString()}});
    nlohmann::json lenses = nlohmann::json::array();
    for (const auto &[lensId, sequence] : m_lenses)
        lenses.push_back({{"lens_id", lensId.toStdString()}, {"shortcut", keyOf(sequence).toStdString()}});
    return {{kRoleShortcuts, roles}, {kLensShortcuts, lenses}};
}

} // namespace VCam
