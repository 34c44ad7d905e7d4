#pragma once

#include "classroom.h"
#include "imageblock.h"
#include "strategyregistry.h"
#include "videowatch.h"

#include <opencv2/core.hpp>

#include <QImage>
#include <QObject>
#include <QVariantMap>

#include <atomic>
#include <memory>
#include <thread>

class BaseStrategy;
class ImageReader;
class QThread;
class QTimer;

/**
 * The one object that ties the service together: holds the reader of the camera's frames and fans them
 * out, saves the students every six minutes, and carries out the client's commands on its three rooms: the
 * running analyses (StrategyRegistry), the students (Classroom), and the watch over the video (VideoWatch).
 *
 * Threads: lives on a work thread of its own, on which frames arrive and go out. Commands are called
 * directly on request threads, one at a time (the service's mutex sees to that). The two timers fire on a
 * third thread; a fourth tries to connect the reader until it succeeds. Strategies leave the registry on
 * whichever thread ends them.
 *
 * Replies: every command returns a map with "rsp_error", an ai::Error. Some failures add "rsp_error_detail",
 * some commands "rsp_data". State and camera that a command needs are looked at by the caller, see
 * AIService::execute.
 */
class AIServiceController : public QObject
{
    Q_OBJECT

public:
    /// An analysis that runs until it is stopped: its registered name, and the words for what can fail.
    struct DetectionTexts
    {
        QString strategy;
        const char *stopWarning;
        const char *stopDetail;
        const char *createWarning;
        const char *startWarning;
        const char *startDetail;
    };

    explicit AIServiceController(QObject *parent = nullptr);
    ~AIServiceController() override;

    /// Starts the connection of the reader and the timers. Cannot fail.
    QVariantMap init();
    /// Stops what init started, ends all analyses and the recording, and clears the students in memory.
    /// Waits for a camera when none has ever been connected.
    void close();
    /// Loads the recognisers that AIConfig wants. Whether all of them are up; the reply isn't changed.
    bool loadModel(QVariantMap &reply);
    /// Takes "identify" and "enableEmotion" and saves the configuration. The result is empty.
    QVariantMap setConfigData(const QVariantMap &params);
    /// Ends all analyses, forgets all students and deletes the store's file.
    QVariantMap reset(const QString &requestID);
    /// Feeds what the store holds back through the commands, without writing to it. An exception of one
    /// student costs that student; any other passes through.
    void recovery();

    /// Whether the reader is connected; in the moment between init and its first attempt, too.
    bool isCameraConnected() const { return m_valid; }

    // The registry's provide, remove and reset.
    bool addNewStrategy(const QString &name, const QString &requestID);
    void removeStrategy(const QString &name, const BaseStrategy *strategy);
    void resetStrategies();

    // The rooms, for commands that need no more than one of them.
    StrategyRegistry &strategies() { return m_strategies; }
    Classroom &classroom() { return m_classroom; }

    // Gallery commands.
    QVariantMap setExternalGallery(const QVariantMap &params, const QString &requestID);
    QVariantMap fetchGalleryNew(const QVariantMap &params, const QString &requestID);
    QVariantMap registerGallery(const QVariantMap &params, const QString &requestID);
    /// Enrols one student, see Classroom::enrol.
    bool registerStuGallery(const QString &stuID, const QString &faceImg, cv::Rect rect);
    QVariantMap deleteGallery(const QVariantMap &params);
    QVariantMap bestGallery(const QString &requestID);
    /// Clears the recogniser's gallery and the students in memory, not the store.
    void deleteAllGalleries();
    QVariantMap clearHistoryGalleries(const QString &requestID);
    QVariantMap updateStudentID(const QVariantMap &params);
    QVariantMap updateStudentGallery(const QVariantMap &params);

    // Analyses; the flag is 1 to start and 0 to stop.
    QVariantMap detect(const DetectionTexts &texts, const QString &requestID, int start);
    QVariantMap detectHandup(const QVariantMap &params, const QString &requestID, int start);
    QVariantMap detectConcerntration(const QVariantMap &params, const QString &requestID, int start);
    QVariantMap startAttributeDetection(const QVariantMap &params, const QString &requestID);
    QVariantMap tracking(const QVariantMap &params, const QString &requestID, int start);
    QVariantMap startFunctionGame(const QVariantMap &params, const QString &requestID, int start);

    // Recording.
    QVariantMap startVideoRecord(const QVariantMap &params, const QString &requestID);
    QVariantMap stopVideoRecord(const QString &requestID);

signals:
    /// One for each accepted frame, on the work thread. The pixels aren't copied: the reader's next poll
    /// overwrites them.
    void newImageSignal(const QImage &image);
    /// Events of the controller's own; it has none at present.
    void serviceMessgeSignal(unsigned int msg, const QVariant &eventInfo, const QString &type,
                             const QString &requestID);

public slots:
    void onIPCVideoFrame(const ImageBlock &block);
    void onStorageTimeDone();
    void onCheckTimerDone();

private:
    static void ipcConnect(void *controller);

    ImageReader *m_reader;
    std::atomic<bool> m_valid{false};      ///< the reader is connected, or init has just run
    QThread *m_workThread;                 ///< deletes itself when it has finished
    std::atomic<bool> m_ipcRunning{false}; ///< the reader is connected
    QThread *m_timerThread = nullptr;
    QTimer *m_storageTimer = nullptr;
    std::shared_ptr<std::thread> m_ipcThread;
    std::atomic<bool> m_modelLoaded{false};

    StrategyRegistry m_strategies;
    Classroom m_classroom;
    VideoWatch m_videoWatch{[this] { return m_valid && m_modelLoaded; }};
};
