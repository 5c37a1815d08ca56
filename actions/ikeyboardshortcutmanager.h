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

signals:
    void shortcutActivated(VCam::ShortcutRole role);
    void lensShortcutActivated(const VCam::LensId &lensId);
};

} // namespace VCam
