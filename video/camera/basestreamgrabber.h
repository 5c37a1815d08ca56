#pragma once

#include "iframestream.h"

#include <QImage>
#include <QObject>
#include <functional>
#include <memory>
#include <string>

class QTimer;

namespace VCam {

// Drives one frame stream from a timer at the stream's frame rate and emits
// every picture. Lives on the thread that processes the frames.
class BaseStreamGrabber : public QObject
{
    Q_OBJECT
public:
    enum State { PlayState = 0, PauseState = 1, StopState = 2 };
    Q_ENUM(State)

    // Makes the stream that serves a device name (empty for the default).
    using StreamFactory = std::function<std::unique_ptr<IFrameStream>(const std::string &deviceName)>;

    explicit BaseStreamGrabber(StreamFactory factory, QObject *parent = nullptr);
    ~BaseStreamGrabber() override;

    State state() const { return m_state; }
    bool isOpened() const { return m_opened; }
    bool isStreamFailed() const { return m_streamFailed; }
    bool isTimerActive() const;
    int timerInterval() const;
    IFrameStream *stream() const { return m_stream.get(); }

    // The wanted output width / height; applied at once to an open stream.
    void setAspectRatio(float ratio);

signals:
    void streamOpened();
    void streamStateChanged(VCam::BaseStreamGrabber::State state);
    void finished();
    void frameReady(QImage frame, double timestamp);

public slots:
    void requestStreamState();
    void changeStreamState(VCam::BaseStreamGrabber::State requested);
    void start();
    void stop();

protected:
    void openStream();
    void grabFrame();
    // Swaps in a stream of another kind, made by the factory for the name.
    void replaceStream(const std::string &deviceName);
    void setState(State state) { m_state = state; }

private:
    void onTimeout();
    void closeStream();
    void applyAspectRatio();

    QTimer *m_timer = nullptr;
    State m_state = StopState;
    StreamFactory m_factory;
    std::unique_ptr<IFrameStream> m_stream;
    bool m_opened = false;
    bool m_streamFailed = false;
    float m_aspectRatio = 0.0f;
};

} // namespace VCam
