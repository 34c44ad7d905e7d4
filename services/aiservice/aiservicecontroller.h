#pragma once

#include "imageblock.h"

#include <opencv2/core.hpp>

#include <QImage>
#include <QMap>
#include <QMutex>
#include <QObject>
#include <QVariantMap>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

class BaseStrategy;
class ImageReader;
class QThread;
class QTimer;

/**
 * The one object that ties the service together: holds the reader of the camera's frames and fans them
 * out, keeps the registry of the running analyses, watches whether video arrives, saves the students
 * every six minutes, and carries out the client's commands.
 *
 * Threads: lives on a work thread of its own, on which frames arrive and go out. Commands are called
 * directly on request threads, one at a time (the service's mutex sees to that). The two timers fire on a
 * third thread; a fourth tries to connect the reader until it succeeds. Strategies leave the registry on
 * whichever thread ends them.
 *
 * Replies: every command returns a map with "rsp_error", an ai::Error. Some failures add "rsp_error_detail",
 * some commands "rsp_data". State and camera that a command needs are looked at by the caller, see
 * AIService::execute.
 *
 * The students are touched in a fixed order without a transaction: recogniser, DataManager,
 * ExternalGallery, store. A step that fails leaves the earlier ones done.
 */
class AIServiceController : public QObject
{
    Q_OBJECT

public:
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

    /// Provides the strategy of a name: the one that is registered, or a new one in place of none and of one
    /// that has ended. False for a name that the factory doesn't know.
    bool addNewStrategy(const QString &name, const QString &requestID);
    /// Takes a strategy out of the registry, unless another object stands under its name by now.
    void removeStrategy(const QString &name, const BaseStrategy *strategy);
    /// Takes all strategies out of the registry. They end on their own threads, without `finished`.
    void resetStrategies();

    // Gallery commands.
    QVariantMap setExternalGallery(const QVariantMap &params, const QString &requestID);
    QVariantMap fetchGalleryNew(const QVariantMap &params, const QString &requestID);
    QVariantMap registerGallery(const QVariantMap &params, const QString &requestID);
    /// Enrols one student. Whether he is known afterwards.
    /// @param faceImg JPEG data text of a head crop of 128 by 128
    /// @param rect the face in frame pixels
    bool registerStuGallery(const QString &stuID, const QString &faceImg, cv::Rect rect);
    QVariantMap deleteGallery(const QVariantMap &params);
    QVariantMap bestGallery(const QString &requestID);
    /// Clears the recogniser's gallery and the students in memory, not the store.
    void deleteAllGalleries();
    QVariantMap clearHistoryGalleries(const QString &requestID);
    QVariantMap updateStudentID(const QVariantMap &params);
    QVariantMap updateStudentGallery(const QVariantMap &params);

    // Analyses; the flag is 1 to start and 0 to stop.
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
    /// Words in which detectHandup and detectConcerntration differ.
    struct DetectionTexts;

    static void ipcConnect(void *controller);

    /// What came of a command's start.
    enum class Started
    {
        yes,
        refused,    ///< the strategy runs already
        notProvided ///< the factory doesn't know the name
    };

    /// The registered strategy of a name, or null. Leaves a null entry behind for a name that isn't there.
    std::shared_ptr<BaseStrategy> registeredStrategy(const QString &name);
    /// Provides the strategy of a name and starts it with `start`, which is called once more, for a new
    /// strategy, when the one that was provided ended by itself before it could be started.
    Started startStrategy(const QString &name, const QString &requestID,
                          const std::function<bool(BaseStrategy &)> &start);
    /// Queues a frame for all strategies that keep up. Called on the thread of the video.
    void offerFrame(const QImage &image);
    QVariantMap detect(const DetectionTexts &texts, const QString &requestID, int start);
    bool removeFace(int faceID);
    /// Takes one external face. False for a picture or a face that is no good.
    bool addExternalFace(const QString &stuID, const QString &faceImg);
    void recoverStudents();
    /// Carries out what concerns one student. In a recovery an exception costs no more than that; a client's
    /// command it ends.
    void forStudent(const QString &stuID, const std::function<void()> &step);

    ImageReader *m_reader;
    QMutex m_strategyLock;                                     ///< guards m_strategies
    QMap<QString, std::shared_ptr<BaseStrategy>> m_strategies; ///< by registered name; may hold nulls
    std::atomic<bool> m_valid{false};      ///< the reader is connected, or init has just run
    QThread *m_workThread;                 ///< deletes itself when it has finished
    std::atomic<bool> m_ipcRunning{false}; ///< the reader is connected
    QThread *m_timerThread = nullptr;
    QTimer *m_storageTimer = nullptr;
    QTimer *m_checkTimer = nullptr;
    std::shared_ptr<std::thread> m_ipcThread;
    // Wall clock in ticks of 100 nanoseconds.
    std::atomic<qint64> m_checkTime{0};
    std::atomic<qint64> m_lastFrameTime{0};
    std::atomic<bool> m_modelLoaded{false};
    std::atomic<bool> m_videoAlive{true};  ///< the video state last told to the client
    std::atomic<bool> m_recovering{false}; ///< nothing is written to the store
    int m_refusedFaces = 0; ///< registrations that the recogniser has refused since the last recovery began
};
