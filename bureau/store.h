#pragma once

#include "basestore.h"

#include <nlohmann/json.hpp>

namespace VCam {

// A store of the application: owns one section of settings.json and by
// default starts and stops at once.
class Store : public Bureau::BaseStore
{
    Q_OBJECT
public:
    using Bureau::BaseStore::BaseStore;

    virtual nlohmann::json saveSettings() const;
    virtual void loadSettings(const nlohmann::json &section);

public slots:
    void start() override;
    void stop() override;
};

} // namespace VCam
