#pragma once

#include <QMutex>

namespace VCam {

// Serialises opening, closing and filter building of every FFmpeg stream in
// the process: device opening and graph set-up are not safe to run in parallel.
class FFmpegMutex
{
public:
    static QMutex &instance();
};

} // namespace VCam
