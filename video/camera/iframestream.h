#pragma once

#include <QImage>
#include <string>

namespace VCam {

// One picture taken from a frame stream. The image aliases the stream's
// output buffer; while any copy of it is alive the stream drops new pictures.
struct Frame
{
    QImage image;
    double timestamp = 0.0;
    bool failed = false;
};

// A source of RGBA pictures: a webcam, a video file or the demo clip.
class IFrameStream
{
public:
    virtual ~IFrameStream() = default;

    virtual void setDeviceName(std::string name) = 0;
    virtual std::string deviceName() const = 0;
    virtual bool open() = 0;
    virtual void close() = 0;
    virtual Frame read() = 0;
    virtual double fps() const = 0;
    virtual void pause() = 0;
    virtual void resume() = 0;

protected:
    // Opens the container for the concrete kind of device.
    virtual bool openInput() = 0;
    // The libavfilter graph text for an input picture of the given size.
    virtual std::string filterDescription(int width, int height) = 0;
};

} // namespace VCam
