#pragma once

#include <QLoggingCategory>

Q_DECLARE_LOGGING_CATEGORY(lcProcessing)
Q_DECLARE_LOGGING_CATEGORY(lcCoreStore)
