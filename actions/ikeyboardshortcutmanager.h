#pragma once

#include "actiontypes.h"
#include "lensid.h"

#include <QKeySequence>
#include <QObject>
#include <nlohmann/json.hpp>

namespace VCam {

// System-wide hotkeys as the application store drives them: role bindings,
// lens bindings and their settings form.
class IKeyboardShortcutManager : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    virtual void setShortcut(ShortcutRole role, const QKeySequence &sequence) = 0;
    virtual void removeShortcut(ShortcutRole role) = 0;
    virtual QKeySequence shortcut(ShortcutRole role) const = 0;
    virtual void setLensShortcut(const LensId &lensId, const QKeySequence &sequence) = 0;
    virtual void removeLensShortcut(const LensId &lensId) = 0;
    virtual QKeySequence lensShortcut(const LensId &lensId) const = 0;
    // Whether a sequence is free: bound to no role and no lens.
    virtual bool isAvailable(const QKeySequence &sequence) const = 0;

    virtual void loadSettings(const nlohmann::json &shortcuts) = 0;
    virtual nlohmann::json saveSettings() const = 0;

    // Whether hotkeys work while other programs have the focus; when not,
    // the reason for the user (bindings still work inside the window).
    virtual bool isSystemWide() const = 0;
    virtual QString unavailableReason() const = 0;
    // What keeps a bound sequence from working, for the user ("Ctrl+Shift+1
    // is taken by another program"); empty when it works.
    virtual QString problem(const QKeySequence &sequence) const = 0;

signals:
    void shortcutActivated(VCam::ShortcutRole role);
    void lensShortcutActivated(const VCam::LensId &lensId);
    // A new binding took its sequence from another role or lens, whose
    // binding is now cleared; `previousOwner` names it for the user.
    void shortcutTakenOver(const QString &sequence, const QString &previousOwner);
};

} // namespace VCam
