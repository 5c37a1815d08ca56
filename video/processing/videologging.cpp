#include "videologging.h"

Q_LOGGING_CATEGORY(lcProcessing, "glint.video.processing")
Q_LOGGING_CATEGORY(lcCoreStore, "glint.video.store")
