#pragma once

#include <QObject>
#include <orb/hostdelegates.h>

namespace VCam {

// Passes the lens's hint requests on as signals; the hint id travels, and
// the side that shows the hint looks its text up in the hint table.
class HintsDelegate : public QObject, public Orb::HintsDelegate
{
    Q_OBJECT
public:
    using QObject::QObject;

    void showHint(const std::string &hintId) override;
    void hideHint() override;

signals:
    void showHintRequested(const QString &hintId);
    void hideHintRequested();
};

} // namespace VCam
