#include "basestreamgrabber.h"

#include "ffmpegwebcamframestream.h"
#include "framesourcelogging.h"

#include <QTimer>

namespace VCam {

BaseStreamGrabber::BaseStreamGrabber(StreamFactory factory, QObject *parent)
    : QObject(parent), m_timer(new QTimer(this)), m_factory(std::move(factory)), m_stream(m_factory({}))
{
    qRegisterMetaType<VCam::BaseStreamGrabber::State>();
    m_timer->setTimerType(Qt::PreciseTimer);
    m_timer->setInterval(0);
    connect(m_timer, &QTimer::timeout, this, &BaseStreamGrabber::onTimeout);
}

BaseStreamGrabber::~BaseStreamGrabber() = default;

bool BaseStreamGrabber::isTimerActive() const
{
    return m_timer->isActive();
}

int BaseStreamGrabber::timerInterval() const
{
    return m_timer->interval();
}

void BaseStreamGrabber::setAspectRatio(float ratio)
{
    m_aspectRatio = ratio;
    applyAspectRatio();
}

void BaseStreamGrabber::applyAspectRatio()
{
    auto *stream = dynamic_cast<FFmpegWebcamFrameStream *>(m_stream.get());
    if (stream && m_aspectRatio > 0.0f)
        stream->setAspectRatio(m_aspectRatio);
}

void BaseStreamGrabber::requestStreamState()
{
    emit streamStateChanged(m_state);
}

void BaseStreamGrabber::start()
{
    changeStreamState(PlayState);
}

void BaseStreamGrabber::stop()
{
    m_timer->stop();
    m_state = StopState;
    emit finished();
}

void BaseStreamGrabber::changeStreamState(State requested)
{
    if (requested == m_state)
        return;
    if (requested == StopState) {
        closeStream();
        m_timer->stop();
        m_state = StopState;
    } else if (requested == PlayState && m_state == PauseState && m_opened) {
        m_timer->start();
        m_stream->resume();
        m_state = PlayState;
    } else if (requested == PlayState) {
        // From stop, or from a pause during which a camera of another kind
        // replaced the stream: open it.
        openStream();
    } else if (requested == PauseState && m_state == PlayState) {
        // The timer stops itself at its next tick.
        m_stream->pause();
        m_state = PauseState;
    }
    emit streamStateChanged(m_state);
}

void BaseStreamGrabber::closeStream()
{
    if (m_opened)
        m_stream->close();
    m_opened = false;
}

void BaseStreamGrabber::openStream()
{
    closeStream();
    m_opened = m_stream->open();
    if (!m_opened) {
        m_state = StopState;
        return;
    }
    emit streamOpened();
    m_state = PlayState;
    m_streamFailed = false;
    m_timer->setInterval(int(1000.0f / float(m_stream->fps())));
    m_timer->start();
    grabFrame();
}

void BaseStreamGrabber::grabFrame()
{
    if (m_state != PlayState || !m_opened || m_streamFailed) {
        m_timer->stop();
        return;
    }
    const Frame frame = m_stream->read();
    m_streamFailed = frame.failed;
    if (!frame.image.isNull())
        emit frameReady(frame.image, frame.timestamp);
}

void BaseStreamGrabber::onTimeout()
{
    if (m_opened && m_streamFailed) {
        // The device failed on the last read (unplugged, for example): reopen it.
        openStream();
        if (!m_opened)
            qCWarning(lcFrameSource) << "Stream stopped: the camera could not be reopened";
    }
    grabFrame();
}

void BaseStreamGrabber::replaceStream(const std::string &deviceName)
{
    closeStream();
    m_stream = m_factory(deviceName);
    applyAspectRatio();
}

} // namespace VCam
