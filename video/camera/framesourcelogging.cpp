#include "framesourcelogging.h"

Q_LOGGING_CATEGORY(lcFrameSource, "glint.video.framesource")
