#include "keeper.h"

#include "codes.h"
#include "report.h"

#include <algorithm>

namespace {

constexpr int lookInterval = 250;        // milliseconds
constexpr int firstPause = 500;          // milliseconds
constexpr int longestPause = 10000;      // milliseconds
constexpr int recordingInterval = 30000; // milliseconds between two looks at the recording
constexpr int countInterval = 600000;    // milliseconds between two counts without an occasion
constexpr int longestPatience = 8;       // times the configured silence

} // namespace

const QString Keeper::requestPrefix = QStringLiteral("bridge-");

Keeper::Keeper(const Settings &settings, ServiceLink &service, const CameraWatch &camera, QObject *parent)
    : QObject(parent), m_settings(settings), m_service(service), m_camera(camera)
{
    for (const auto &analysis : codes::analyses())
        if (settings.run.analyses.contains(analysis.word))
            m_kept.append({analysis.word,
                           analysis.start,
                           analysis.stop,
                           analysis.event,
                           false,
                           settings.run.silence,
                           {}});
    connect(&service, &ServiceLink::up, this, &Keeper::onUp);
    connect(&service, &ServiceLink::down, this, &Keeper::onDown);
    connect(&service, &ServiceLink::eventReceived, this, &Keeper::onEvent);
    connect(&service, &ServiceLink::stateTold, this, &Keeper::look);
    connect(&camera, &CameraWatch::resumed, this, [this] {
        for (Kept &kept : m_kept)
            kept.heard.start();
    });
    connect(&m_timer, &QTimer::timeout, this, &Keeper::look);
    m_timer.start(lookInterval);
}

QStringList Keeper::running() const
{
    QStringList words;
    for (const Kept &kept : m_kept)
        if (kept.running)
            words.append(kept.word);
    return words;
}

QStringList Keeper::wanted() const
{
    return m_settings.run.hours.contain(QDateTime::currentDateTime()) ? m_settings.run.analyses
                                                                      : QStringList();
}

bool Keeper::keeps(AiClient::Kind kind, uint code) const
{
    if (kind != AiClient::Execute)
        return false;
    const ai::Command command{code};
    return std::any_of(m_kept.begin(), m_kept.end(), [&](const Kept &kept) {
        return kept.running && (command == kept.start || command == kept.stop) &&
               wanted().contains(kept.word);
    });
}

void Keeper::noticeRequest(AiClient::Kind kind, uint code)
{
    m_recount = true;
    const bool isCommand = kind == AiClient::Execute;
    if (isCommand && ai::Command{code} == ai::Command::StopRecording)
        m_recordingAsked.invalidate();
    if (kind == AiClient::Close || (isCommand && ai::Command{code} == ai::Command::Reset))
        for (Kept &kept : m_kept)
            kept.running = false;
    if (kind == AiClient::Close)
        m_initialised = m_recording = false;
    emit changed();
}

bool Keeper::isOwnCount(const AiEvent &event)
{
    return event.event() == ai::Event::BestPictures && event.requestID.startsWith(requestPrefix);
}

void Keeper::onUp()
{
    m_pause = 0;
    m_initialised = false;
}

void Keeper::onDown()
{
    m_busy = m_initialised = m_recording = false;
    m_recordingAsked.invalidate();
    m_recount = true;
    m_students = -1;
    for (Kept &kept : m_kept) {
        kept.running = false;
        kept.patience = m_settings.run.silence;
    }
    emit changed();
}

void Keeper::onEvent(const AiEvent &event)
{
    for (Kept &kept : m_kept)
        if (event.event() == kept.event) {
            kept.heard.start();
            kept.patience = m_settings.run.silence;
        }
    if (event.event() == ai::Event::Registered)
        m_recount = true;
    if (event.event() == ai::Event::BestPictures) {
        m_students = event.info.value("bestGalleries").toList().size();
        emit changed();
    }
}

void Keeper::look()
{
    if (m_busy || !m_service.isUp() || m_service.state() < 0)
        return;
    if (m_pause > 0 && m_paused.elapsed() < m_pause)
        return;
    if (m_service.state() == code(ai::State::Closed)) {
        m_initialised = m_recording = false;
        send(AiClient::Open, 0, {}, [this](const AiReply &reply) {
            reply.ok() ? initialise() : fail(QStringLiteral("open"), reply);
        });
        return;
    }
    if (!m_initialised || m_service.state() != code(ai::State::Initialised)) {
        initialise();
        return;
    }
    for (Kept &kept : m_kept)
        if (keepAnalysis(kept))
            return;
    if (keepRecording() || countStudents())
        return;
    if (!m_problem.isEmpty())
        succeed();
}

void Keeper::send(ai::Command command, const QVariant &data, std::function<void(const AiReply &)> done)
{
    send(AiClient::Execute, code(command), data, std::move(done));
}

void Keeper::send(AiClient::Kind kind, uint code, const QVariant &data,
                  std::function<void(const AiReply &)> done)
{
    m_busy = true;
    m_service.request(kind, code, data, requestPrefix + QString::number(code),
                      [this, done = std::move(done)](const AiReply &reply) {
                          m_busy = false;
                          if (reply.outcome == AiReply::Answered)
                              done(reply);
                      });
}

void Keeper::initialise()
{
    QVariantMap data{{"identify", m_settings.room}, {"enableEmotion", m_settings.run.smiles}};
    for (const QString &key : m_settings.run.recognisers)
        data.insert(key, true);
    send(ai::Command::Initialise, data, [this](const AiReply &reply) {
        if (!reply.ok()) {
            fail(QStringLiteral("loading the recognisers"), reply);
            return;
        }
        m_initialised = true;
        m_recount = true;
        succeed();
    });
}

/// @return true when a request is on its way
bool Keeper::keepAnalysis(Kept &kept)
{
    const bool isWanted = wanted().contains(kept.word);
    if (kept.running && !isWanted) {
        kept.running = false;
        report(QStringLiteral("%1 ends with its hours").arg(kept.word));
        send(kept.stop, {}, [this](const AiReply &) { emit changed(); });
        return true;
    }
    const bool isSilent = kept.running && m_camera.isAlive() && kept.heard.elapsed() > kept.patience;
    if (!isWanted || (kept.running && !isSilent))
        return false;
    restart(kept);
    return true;
}

void Keeper::restart(Kept &kept)
{
    const bool wasThought = kept.running;
    send(kept.stop, {}, [this, &kept, wasThought](const AiReply &stopped) {
        kept.running = false;
        if (wasThought && stopped.ok())
            kept.patience = std::min(2 * kept.patience, longestPatience * m_settings.run.silence);
        else
            kept.patience = m_settings.run.silence;
        if (wasThought && !stopped.ok())
            report(QStringLiteral("%1 had been ended by another client").arg(kept.word));
        send(kept.start, {}, [this, &kept](const AiReply &started) {
            if (!started.ok()) {
                fail(kept.word, started);
                return;
            }
            kept.running = true;
            kept.heard.start();
            succeed();
            emit changed();
        });
    });
}

/// A start that is refused because a recording runs does nothing, so it also tells whether one does.
bool Keeper::keepRecording()
{
    // Without hours a recording is other clients' business.
    if (m_settings.recording.hours.isNever())
        return false;
    const bool isWanted = m_settings.recording.hours.contain(QDateTime::currentDateTime());
    const bool isDue =
        !m_recordingAsked.isValid() || (isWanted && m_recordingAsked.elapsed() > recordingInterval);
    if (isWanted == m_recording && !isDue)
        return false;
    m_recordingAsked.start();
    QVariantMap data;
    if (isWanted && !m_settings.recording.folder.isEmpty())
        data.insert("recordPath", m_settings.recording.folder);
    send(isWanted ? ai::Command::StartRecording : ai::Command::StopRecording, data,
         [this, isWanted](const AiReply &reply) {
             if (!reply.ok() && reply.error != code(ai::Error::WrongState)) {
                 fail(QStringLiteral("recording"), reply);
                 return;
             }
             if (m_recording != isWanted)
                 report(isWanted ? QStringLiteral("recording")
                                 : QStringLiteral("recording ends with its hours"));
             m_recording = isWanted;
             emit changed();
         });
    return true;
}

bool Keeper::countStudents()
{
    if (!m_recount && m_studentsAsked.isValid() && m_studentsAsked.elapsed() < countInterval)
        return false;
    m_recount = false;
    m_studentsAsked.start();
    send(ai::Command::BestPictures, {}, [](const AiReply &) {});
    return true;
}

void Keeper::fail(const QString &what, const AiReply &reply)
{
    const QString problem = QStringLiteral("%1: %2%3")
                                .arg(what, AiReply::meaningOf(reply.error),
                                     reply.detail.isEmpty() ? QString() : ", " + reply.detail);
    if (problem != m_problem)
        report(problem);
    m_problem = problem;
    m_pause = m_pause > 0 ? std::min(2 * m_pause, longestPause) : firstPause;
    m_paused.start();
    emit changed();
}

void Keeper::succeed()
{
    m_pause = 0;
    if (m_problem.isEmpty())
        return;
    m_problem.clear();
    emit changed();
}
