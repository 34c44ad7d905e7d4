#pragma once

#include "camerawatch.h"
#include "servicelink.h"
#include "settings.h"

/**
 * Brings about what the configuration wants to run, and keeps it.
 *
 * The service is opened and initialised when it isn't. An analysis is always brought about by a stop and then
 * a start: a start that is refused because the analysis runs would double its events. The service doesn't
 * tell that another client's leaving has ended the analyses; it shows by their silence while the camera
 * lives. An analysis that did run when it was stopped for its silence is given twice the time before the next
 * try, up to eight times: an empty classroom is silent, and so is a machine that needs long for a picture.
 *
 * Threads: one.
 */
class Keeper : public QObject
{
    Q_OBJECT

public:
    Keeper(const Settings &settings, ServiceLink &service, const CameraWatch &camera,
           QObject *parent = nullptr);

    /// Words of the analyses that run, as far as is known.
    QStringList running() const;
    /// Words of those that should run now.
    QStringList wanted() const;
    bool isRecording() const { return m_recording; }
    /// Number of students; -1 when it isn't known.
    int students() const { return m_students; }
    /// What went wrong last, in words; empty when all is as it should be.
    QString problem() const { return m_problem; }

    /// True for a request that starts or stops what the configuration keeps running now.
    bool keeps(AiClient::Kind kind, uint code) const;
    /// Another client's request has been answered with success: it may have changed what was brought about.
    void noticeRequest(AiClient::Kind kind, uint code);

    /// True for the event with which the keeper counts the students; it is no news for others.
    static bool isOwnCount(const AiEvent &event);

    /// Begins the identifiers of the bridge's own requests.
    static const QString requestPrefix;

signals:
    void changed();

private:
    struct Kept
    {
        QString word;
        ai::Command start, stop;
        ai::Event event;
        bool running = false;
        int patience = 0;    ///< milliseconds of silence until the next try
        QElapsedTimer heard; ///< since the last event, or the start
    };

    void onUp();
    void onDown();
    void onEvent(const AiEvent &event);
    void look();
    /// Sends one request; look() waits for its answer.
    void send(ai::Command command, const QVariant &data, std::function<void(const AiReply &)> done);
    void send(AiClient::Kind kind, uint code, const QVariant &data,
              std::function<void(const AiReply &)> done);
    void initialise();
    bool keepAnalysis(Kept &kept);
    bool keepRecording();
    bool countStudents();
    void restart(Kept &kept);
    void fail(const QString &what, const AiReply &reply);
    void succeed();

    const Settings &m_settings;
    ServiceLink &m_service;
    const CameraWatch &m_camera;
    QTimer m_timer;
    QList<Kept> m_kept;
    bool m_busy = false;
    bool m_initialised = false;
    bool m_recording = false;
    bool m_recount = false;
    int m_students = -1;
    QElapsedTimer m_recordingAsked, m_studentsAsked, m_paused;
    int m_pause = 0; ///< milliseconds after a failure
    QString m_problem;
};
