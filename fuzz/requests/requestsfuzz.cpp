#include "aiconfig.h"
#include "aiservice.h"
#include "aiservicecontroller.h"
#include "basestrategy.h"
#include "datamanager.h"
#include "garbage.h"
#include "home.h"
#include "imagewritter.h"
#include "messageSender.h"
#include "scripted.h"
#include "source.h"
#include "strategyfactory.h"
#include "values.h"
#include "wire.h"

#include <opencv2/imgproc.hpp>

#include <QDir>

#include <cmath>

namespace {

// The service keeps its controller to itself. An explicit instantiation may name private members.
AIServiceController *controllerOf(AIService &service);

template <auto Member>
struct ControllerAccess
{
    friend AIServiceController *controllerOf(AIService &service) { return service.*Member; }
};
template struct ControllerAccess<&AIService::controller>;

/// Of one input. OpenCV's tracker takes some 30 ms for each, and the second one that other analyses handle is
/// the 31st.
constexpr int mostFrames = 31;

/// Recognisers that give garbage, one of each, put into the model manager.
void installGarbage()
{
    static ModelManagerTestAccess::Recognisers recognisers;
    recognisers.faces->answer = garbage::faces;
    recognisers.ids = std::make_shared<garbage::Gallery>();
    recognisers.bodies->answer = garbage::bodies;
    recognisers.bodyPose->answer = garbage::classes;
    recognisers.handup->answer = garbage::classes;
    recognisers.attributes->answer = garbage::attributes;
    recognisers.emotion->answer = garbage::emotion;
    recognisers.pose->answer = garbage::poses;
    recognisers.poseClass->answer = garbage::classes;
    recognisers.install();
}

/// What goes to a client must be something that it can read.
void check(const QVariant &sent)
{
    if (!wire::decodePayload(wire::encodePayload(sent)).isValid())
        std::abort();
}

void checkReply(const QVariantMap &reply)
{
    if (!reply.contains("rsp_error"))
        std::abort();
    check(reply);
}

/// Whatever came in, the records stay such that the next frame and the store can work with them.
void checkStudents()
{
    for (const StudentInfo &student : DataManager::instance()->getAllStudents()) {
        if (student.stuID.isEmpty() || student.galleryImage.size() != cv::Size(128, 128) ||
            student.bestGallery.type() != CV_8UC3 || student.bestGallery.empty() ||
            !std::isfinite(student.galleryScore))
            std::abort();
    }
}

/// The service as a process has it: one, that is opened and closed again and again.
class Service
{
public:
    explicit Service(const QString &home) : m_videos(home + "/videos")
    {
        AIConfig::instance().load();
        QObject::connect(
            &m_service, &IService::serviceMessgeSignal, &m_service,
            [](uint, const QVariant &event, const QString &, const QString &) { check(event); },
            Qt::DirectConnection);
        MessageSender::instance()->setService(&m_service);
    }

    void play(Source &steps)
    {
        m_framesLeft = mostFrames;
        AIConfig::instance().setModelLoadFlag(0);
        installGarbage();
        checkReply(m_service.open("open"));
        checkReply(m_service.execute(code(ai::Command::Initialise), QVariantMap(), "init"));
        while (!steps.isEmpty())
            step(steps);
        drain();
        checkStudents();
        checkReply(m_service.close("close"));
        QDir(m_videos).removeRecursively();
    }

private:
    void step(Source &steps)
    {
        const int choice = steps.choose(32);
        if (choice < 18)
            return command(steps);
        if (choice < 25)
            return frames(steps);
        switch (choice) {
        case 25:
            checkReply(
                m_service.info(steps.oneIn(2) ? code(ai::Question::Status) : steps.take<std::uint32_t>(),
                               values::parameters(0, steps, m_videos), values::requestID(steps)));
            return;
        case 26:
            m_controller.onStorageTimeDone();
            return;
        case 27:
            m_controller.onCheckTimerDone();
            return;
        case 28:
            m_service.disconnectReset();
            return;
        case 29:
            // As after a crash: the store is what is left.
            checkReply(m_service.close("crash"));
            m_service.recover();
            return;
        case 30:
            // No command starts these today.
            if (const auto strategy = add(steps))
                strategy->start();
            return;
        default:
            drain();
            return;
        }
    }

    void command(Source &steps)
    {
        const int choice = steps.choose(24);
        const unsigned int code = choice == 0   ? steps.take<std::uint16_t>() % 1100
                                  : choice == 1 ? ai::code(ai::Command::Initialise)
                                  : choice == 2 ? ai::code(ai::Command::RegisterStudents)
                                                : 1017 + static_cast<unsigned int>(choice);
        checkReply(
            m_service.execute(code, values::parameters(code, steps, m_videos), values::requestID(steps)));
    }

    std::shared_ptr<BaseStrategy> add(Source &steps)
    {
        const QString name = m_strategyNames[steps.choose(m_strategyNames.size())];
        return m_controller.strategies().provide(name, values::requestID(steps));
    }

    /// Some frames, as the reader hands them over; now and then with a record that doesn't fit.
    void frames(Source &steps)
    {
        static constexpr int counts[] = {1, 1, 1, 2, 5, 10, 30};
        const cv::Rect face(steps.choose(200) * 9, steps.choose(200) * 5, 20 + steps.choose(100), 90);
        cv::Mat picture(1080, 1920, CV_8UC3, m_pixels.data());
        cv::rectangle(picture, face, cv::Scalar(steps.choose(256), 80, steps.choose(256)), cv::FILLED);

        ImageBlock block;
        block.width = steps.oneIn(32) ? steps.take<std::int32_t>() : 1920;
        block.height = steps.oneIn(32) ? steps.take<std::int32_t>() : 1080;
        block.format = steps.oneIn(16) ? steps.choose(10) : RGB;
        block.size = steps.oneIn(32) ? steps.take<std::int32_t>() : int(m_pixels.size());
        block.data = m_pixels.data();
        const bool wait = !steps.oneIn(4);
        const int wanted = counts[steps.choose(int(std::size(counts)))];
        for (int i = 0; i < wanted && m_framesLeft > 0; ++i, --m_framesLeft)
            m_controller.onIPCVideoFrame(block);
        if (wait)
            drain();
    }

    /// Waits until the analyses have handled what was queued for them.
    void drain()
    {
        for (const QString &name : m_strategyNames) {
            const auto strategy = m_controller.strategies().find(name);
            if (strategy && strategy->thread()->isRunning())
                QMetaObject::invokeMethod(
                    strategy.get(), [] {}, Qt::BlockingQueuedConnection);
        }
    }

    const QString m_videos;
    const QStringList m_strategyNames = strategyNames();
    ImageWritter m_camera{"Camera", 1, 64, nullptr};
    AIService m_service;
    AIServiceController &m_controller = *controllerOf(m_service);
    int m_framesLeft = 0;
    std::vector<char> m_pixels = std::vector<char>(std::size_t(1920 * 1080 * 4), 90);
};

} // namespace

/// The first two bytes tell how many of the rest are the steps: requests and frames. The others are what the
/// recognisers answer.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const QString home = enterHome();
    static Service &service = *new Service(home); // its threads live as long as the process

    Source all(data, size);
    const QByteArray steps = all.bytes(all.take<std::uint16_t>() % (size + 1));
    const QByteArray answers = all.bytes(size);
    Source bytes(reinterpret_cast<const std::uint8_t *>(steps.constData()), std::size_t(steps.size()));
    garbage::bytes().reset(reinterpret_cast<const std::uint8_t *>(answers.constData()),
                           std::size_t(answers.size()));
    service.play(bytes);
    // An analysis that was just ended may still be at its last frame.
    garbage::bytes().reset(nullptr, 0);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return 0;
}
