#pragma once

#include "classmodel.h"
#include "servicelink.h"

#include <QElapsedTimer>
#include <QSet>

enum class Analysis
{
    Hands,
    Attention,
    Following,
    Game
};
constexpr int analyses = 4;

/**
 * What a user does with the service, in steps that may be taken at any time: each one sends its requests,
 * keeps the model up to date, and knows what runs.
 *
 * Threads: one.
 */
class LessonControl : public QObject
{
    Q_OBJECT

public:
    /// Empty when it was done, else why not, for people.
    using Done = std::function<void(const QString &problem)>;

    explicit LessonControl(const QString &socketName, QObject *parent = nullptr);

    ServiceLink &link() { return m_link; }
    ClassModel &model() { return m_model; }
    const QElapsedTimer &clock() const { return m_clock; }

    bool isReady() const;
    /// Started here, or told by events: another program may have started it.
    bool isRunning(Analysis analysis) const;
    bool isAnythingRunning() const;
    /// Whether this viewer started a recording, or an event has told of one.
    bool isRecording() const { return m_recordingHere || !m_model.recordingFile().isEmpty(); }
    QStringList followed() const { return m_followed.keys(); }

    void open();
    void close();
    /// Opens first when that is needed.
    void load();
    void findFaces();
    void start(Analysis analysis, const QStringList &students = {});
    void stop(Analysis analysis);
    void follow(const QString &student);
    void stopFollowing(const QString &student);
    void findAttributes();
    /// @param folder empty for the one that the service picks
    void startRecording(const QString &folder);
    void stopRecording();
    void reset();
    void refreshStudents();

    void enrol(const QString &name, const QString &faceText, const QRect &place, Done done);
    void replaceFace(const QString &name, const QString &faceText, const QRect &place, Done done);
    void rename(const QString &from, const QString &to, Done done);
    void remove(const QString &name, Done done);

signals:
    /// What can be done, and what runs.
    void changed();

private:
    void takeEvent(const AiEvent &event);
    void takeState();
    void forgetRunning();
    void forgetRecording();
    void setRunning(Analysis analysis, bool running);
    void end(const QString &requestID);
    bool isStraggler(const AiEvent &event) const;

    ServiceLink m_link;
    ClassModel m_model;
    QElapsedTimer m_clock;
    QTimer m_refresh;
    bool m_running[analyses] = {};           ///< started here
    qint64 m_told[analyses];                 ///< when an event of the analysis last came; -1 for never
    QString m_requests[analyses];            ///< identifiers of the requests that started them
    QMap<QString, qint64> m_ended;           ///< when an analysis was stopped, by that identifier
    QMap<QString, QString> m_followed;       ///< request identifiers, by student
    QMap<QString, QStringList> m_registered; ///< by request identifier
    bool m_recordingHere = false;
    int m_state = -1;
};
