#pragma once

#include <ikeyboardshortcutmanager.h>
#include <map>
#include <memory>

class QSocketNotifier;

namespace VCam {

class HotkeyGrabber;

// System-wide hotkeys: role bindings (a fixed command of the program) and
// lens bindings (switch to that lens). Every sequence is normalised before
// it is bound or compared, and each bound sequence has exactly one owner
// and one grab: binding a sequence that another role or lens holds moves
// it, clears the other binding and says so through shortcutTakenOver.
// Where the platform offers no system-wide hotkeys, or another program
// holds a key, the binding is kept and still works while the application's
// window has the focus (install the manager as the window's event filter).
class KeyboardShortcutManager : public IKeyboardShortcutManager
{
    Q_OBJECT
public:
    explicit KeyboardShortcutManager(QObject *parent = nullptr);
    ~KeyboardShortcutManager() override;

    void setShortcut(ShortcutRole role, const QKeySequence &sequence) override;
    void removeShortcut(ShortcutRole role) override;
    QKeySequence shortcut(ShortcutRole role) const override;
    void setLensShortcut(const LensId &lensId, const QKeySequence &sequence) override;
    void removeLensShortcut(const LensId &lensId) override;
    QKeySequence lensShortcut(const LensId &lensId) const override;
    bool isAvailable(const QKeySequence &sequence) const override;

    // The settings form: {"role_shortcuts": [{"role", "shortcut"}],
    // "lenses_shortcuts": [{"lens_id", "shortcut"}]}. A malformed element
    // rejects the whole section: nothing is bound and a warning says why.
    void loadSettings(const nlohmann::json &shortcuts) override;
    nlohmann::json saveSettings() const override;

    bool isSystemWide() const override;
    QString unavailableReason() const override;
    QString problem(const QKeySequence &sequence) const override;

    bool eventFilter(QObject *watched, QEvent *event) override;

    // While a key recorder listens, the grabs are given back so that the
    // keys of existing bindings reach the window; resuming grabs again.
    void setSuspended(bool suspended);

private:
    enum class GrabState { Grabbed, TakenByOtherProgram, UnknownKey, Unavailable };
    struct Hotkey
    {
        int id = 0;
        GrabState state = GrabState::Unavailable;
        GrabState logged = GrabState::Grabbed; // last trouble the log told
    };
    using Key = QString; // portable text of a normalised sequence

    void bind(const QKeySequence &sequence);
    void grab(const QKeySequence &sequence, Hotkey &hotkey);
    void release(const QKeySequence &sequence);
    void takeOver(const QKeySequence &sequence);
    void clearAll();
    void activate(const QString &key);
    void onGrabActivated(int id);
    void drainEvents();
    static Key keyOf(const QKeySequence &sequence);

    std::unique_ptr<HotkeyGrabber> m_grabber;
    QSocketNotifier *m_notifier = nullptr;
    std::map<ShortcutRole, QKeySequence> m_roles;
    std::map<LensId, QKeySequence> m_lenses;
    std::map<Key, Hotkey> m_hotkeys;
    int m_nextId = 1;
    bool m_suspended = false;
};

} // namespace VCam
