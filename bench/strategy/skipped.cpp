#include "aiservicecontroller.h"
#include "basestrategy.h"
#include "imagewritter.h"
#include "queuedframes.h"
#include "scripted.h"
#include "support.h"

#include <QThread>

#include <pthread.h>
#include <thread>

namespace {

constexpr int width = 1920;
constexpr int height = 1080;
constexpr int frameInterval = 30;

template <class Condition>
void await(Condition condition)
{
    while (!condition())
        std::this_thread::yield();
}

/// One analysis on a controller, which gets its frames as from the reader.
class Analysis
{
public:
    Analysis()
    {
        // Its first frame tells the thread that it runs on.
        m_recognisers.bodies->script = [this](const cv::Mat &) {
            pthread_getcpuclockid(pthread_self(), &m_clock);
            m_handled = true;
        };
        m_controller.init();
        await([this] {
            return m_controller.detectHandup({}, QStringLiteral("bench"), 1).value("rsp_error") == 0;
        });
        m_block.size = static_cast<int>(m_pixels.size());
        m_block.width = width;
        m_block.height = height;
        m_block.format = RGB;
        m_block.data = m_pixels.data();
    }
    ~Analysis() { m_controller.close(); }

    /// Sends one frame and waits until the analysis has seen it.
    double send()
    {
        const int seen = BaseStrategy::frameCount();
        const double seconds = processorSecondsOf([&] { m_controller.onIPCVideoFrame(m_block); });
        await([seen] { return BaseStrategy::frameCount() > seen; });
        return seconds;
    }

    /// Sends a frame that is handled.
    void sendHandled()
    {
        m_handled = false;
        send();
        await([this] { return m_handled.load(); });
    }

    clockid_t clock() const { return m_clock; }

private:
    ModelManagerTestAccess::Recognisers m_recognisers;
    ImageWritter m_camera{QStringLiteral("Camera"), 2, 1024};
    AIServiceController m_controller;
    std::vector<char> m_pixels = std::vector<char>(std::size_t(width) * height * 3);
    ImageBlock m_block;
    clockid_t m_clock = 0;
    std::atomic<bool> m_handled{false};
};

/// A signal with a QImage, queued to a thread that does nothing else.
class Bare
{
public:
    Bare()
    {
        m_receiver.moveToThread(&m_thread);
        QObject::connect(&m_camera, &Camera::newImageSignal, &m_receiver, &Receiver::onFrame);
        m_thread.start();
        QMetaObject::invokeMethod(
            &m_receiver, [this] { pthread_getcpuclockid(pthread_self(), &m_clock); },
            Qt::BlockingQueuedConnection);
    }
    ~Bare()
    {
        m_thread.quit();
        m_thread.wait();
    }

    double send()
    {
        const int seen = m_receiver.frames;
        const double seconds = processorSecondsOf([this] {
            emit m_camera.newImageSignal(
                QImage(m_pixels.data(), width, height, 3 * width, QImage::Format_RGB888));
        });
        await([&] { return m_receiver.frames > seen; });
        return seconds;
    }

    clockid_t clock() const { return m_clock; }

private:
    QThread m_thread;
    Receiver m_receiver;
    Camera m_camera;
    std::vector<uchar> m_pixels = std::vector<uchar>(std::size_t(width) * height * 3);
    clockid_t m_clock = 0;
};

/// Both threads' time for so many frames, one at a time, each to a thread that sleeps.
template <class Target>
double secondsOfFrames(Target &target, int count)
{
    const double before = processorSeconds(target.clock());
    double sending = 0;
    for (int i = 0; i < count; ++i)
        sending += target.send();
    return sending + processorSeconds(target.clock()) - before;
}

/// The skipped frames of one second of video, at 30 and 60 frames a second.
void skippedFrames(benchmark::State &state)
{
    Analysis analysis;
    Bare plain;
    const int handled = static_cast<int>(state.range(0)) / frameInterval;
    double ours = 0;
    double bare = 0;
    while (state.KeepRunning()) {
        for (int i = 0; i < handled; ++i) {
            analysis.sendHandled();
            ours += secondsOfFrames(analysis, frameInterval - 1);
            bare += secondsOfFrames(plain, frameInterval - 1);
        }
    }
    const double scale = 1e6 / static_cast<double>(state.iterations());
    state.counters["ours_us"] = ours * scale;
    state.counters["bare_us"] = bare * scale;
    state.counters["ratio"] = ours / bare;
}
BENCHMARK(skippedFrames)->Arg(30)->Arg(60)->Unit(benchmark::kMicrosecond)->Iterations(100);

} // namespace
