#include "lessoncontrol.h"

#include "messages.h"
#include "words.h"

#include <algorithm>

namespace {

/// An analysis that another program runs counts as running for so long after its last event.
constexpr qint64 toldFor = 12000; // milliseconds
/// The frame in hand is finished after the answer to a stop, which takes slow recognisers some seconds.
constexpr qint64 stragglersFor = 20000;
constexpr int refreshInterval = 60000;

struct AnalysisCodes
{
    ai::Command start;
    ai::Command stop;
    ai::Event event;
    MarkKind mark;
};

constexpr AnalysisCodes codesOf(Analysis analysis)
{
    switch (analysis) {
    case Analysis::Hands:
        return {ai::Command::StartHands, ai::Command::StopHands, ai::Event::Hands, MarkKind::Hand};
    case Analysis::Attention:
        return {ai::Command::StartAttention, ai::Command::StopAttention, ai::Event::Attention,
                MarkKind::Attention};
    case Analysis::Following:
        return {ai::Command::StartFollowing, ai::Command::StopFollowing, ai::Event::Followed,
                MarkKind::Followed};
    case Analysis::Game:
        break;
    }
    return {ai::Command::StartGame, ai::Command::StopGame, ai::Event::Game, MarkKind::Game};
}

QVariantMap withPlace(QVariantMap entry, const QRect &place)
{
    entry["x"] = place.x();
    entry["y"] = place.y();
    entry["width"] = place.width();
    entry["height"] = place.height();
    return entry;
}

QVariantMap allRecognisers()
{
    QVariantMap data{{"identify", "class"}, {"enableEmotion", true}};
    for (const ai::Key &recogniser : ai::recogniserKeys)
        data[recogniser.name] = true;
    return data;
}

} // namespace

LessonControl::LessonControl(const QString &socketName, QObject *parent) : QObject(parent), m_link(socketName)
{
    m_clock.start();
    std::fill(std::begin(m_told), std::end(m_told), -1);
    connect(&m_link, &ServiceLink::eventReceived, this, &LessonControl::takeEvent);
    connect(&m_link, &ServiceLink::changed, this, &LessonControl::takeState);
    connect(&m_link, &ServiceLink::connectionChanged, this, [this](bool connected) {
        if (connected)
            return;
        // Whether a recording goes on is not known any more.
        forgetRecording();
        forgetRunning();
    });
    connect(&m_model, &ClassModel::stateChanged, this, &LessonControl::changed);
    connect(&m_model, &ClassModel::studentsChanged, this, &LessonControl::changed);
    connect(&m_refresh, &QTimer::timeout, this, [this] {
        if (isReady() && isAnythingRunning() && !m_link.isBusy())
            refreshStudents();
    });
    m_refresh.start(refreshInterval);
}

bool LessonControl::isReady() const
{
    return m_link.state() == code(ai::State::Initialised);
}

bool LessonControl::isRunning(Analysis analysis) const
{
    const auto index = int(analysis);
    const bool isTold = m_told[index] >= 0 && m_clock.elapsed() - m_told[index] < toldFor;
    return m_running[index] || isTold;
}

bool LessonControl::isAnythingRunning() const
{
    return isRunning(Analysis::Hands) || isRunning(Analysis::Attention) || isRunning(Analysis::Following) ||
           isRunning(Analysis::Game);
}

void LessonControl::end(const QString &requestID)
{
    if (!requestID.isEmpty())
        m_ended[requestID] = m_clock.elapsed();
}

bool LessonControl::isStraggler(const AiEvent &event) const
{
    const auto ended = m_ended.constFind(event.requestID);
    return ended != m_ended.constEnd() && m_clock.elapsed() - *ended < stragglersFor;
}

void LessonControl::takeEvent(const AiEvent &event)
{
    if (isStraggler(event))
        return;
    if (event.event() == ai::Event::Registered) {
        QStringList names;
        for (const auto &value : event.info["successList"].toList())
            names.append(value.toMap()["stuID"].toString());
        m_registered[event.requestID] = names;
    }
    for (const auto analysis : {Analysis::Hands, Analysis::Attention, Analysis::Following, Analysis::Game}) {
        if (codesOf(analysis).event != event.event())
            continue;
        const bool wasRunning = isRunning(analysis);
        m_told[int(analysis)] = m_clock.elapsed();
        m_requests[int(analysis)] = event.requestID;
        if (!wasRunning)
            emit changed();
    }
    m_model.take(event, m_clock.elapsed());
}

void LessonControl::takeState()
{
    const int before = m_state;
    m_state = m_link.state();
    if (m_state == code(ai::State::Initialised) && before != m_state)
        refreshStudents();
    // A connection that is lost tells nothing of the students; a service that begins anew has none.
    if ((m_state == code(ai::State::Closed) || m_state == code(ai::State::Open)) && before != m_state) {
        forgetRecording();
        forgetRunning();
        m_model.clear();
    }
    emit changed();
}

void LessonControl::forgetRunning()
{
    for (const auto analysis : {Analysis::Hands, Analysis::Attention, Analysis::Following, Analysis::Game}) {
        m_running[int(analysis)] = false;
        m_told[int(analysis)] = -1;
        m_model.stopped(codesOf(analysis).mark);
    }
    m_followed.clear();
    m_registered.clear();
    emit changed();
}

void LessonControl::forgetRecording()
{
    m_recordingHere = false;
    m_model.recordingStopped();
}

void LessonControl::setRunning(Analysis analysis, bool running)
{
    m_running[int(analysis)] = running;
    if (!running) {
        m_told[int(analysis)] = -1;
        m_model.stopped(codesOf(analysis).mark);
        if (analysis == Analysis::Attention)
            m_model.stopped(MarkKind::Smile);
        if (!isRunning(Analysis::Hands) && !isRunning(Analysis::Attention))
            m_model.stopped(MarkKind::Body);
    }
    emit changed();
}

void LessonControl::open()
{
    m_link.send(AiClient::Open, 0);
}

void LessonControl::close()
{
    m_link.send(AiClient::Close, 0);
}

void LessonControl::load()
{
    if (m_link.state() == code(ai::State::Closed))
        open();
    m_link.execute(ai::Command::Initialise, allRecognisers());
}

void LessonControl::findFaces()
{
    m_link.execute(ai::Command::FetchFaces, QVariantMap{}, {}, m_link.newRequestID("faces"));
}

void LessonControl::start(Analysis analysis, const QStringList &students)
{
    if (analysis == Analysis::Following) {
        for (const auto &student : students)
            follow(student);
        return;
    }
    QVariantMap data;
    if (analysis == Analysis::Game) {
        QVariantList players;
        for (const auto &student : students)
            players.append(QVariantMap{{"stuID", student}});
        data["stuList"] = players;
    }
    const QString id = m_link.newRequestID("start");
    m_link.execute(
        codesOf(analysis).start, data,
        [this, analysis, id](const AiReply &reply) {
            if (reply.ok())
                m_requests[int(analysis)] = id;
            if (reply.ok() || reply.error == code(ai::Error::WrongState))
                setRunning(analysis, reply.ok() || isReady());
            emit changed();
        },
        id);
}

void LessonControl::stop(Analysis analysis)
{
    if (analysis == Analysis::Following) {
        const auto students = m_followed.keys();
        for (const auto &student : students)
            stopFollowing(student);
        return;
    }
    m_link.execute(codesOf(analysis).stop, QVariantMap{}, [this, analysis](const AiReply &reply) {
        if (reply.ok() || reply.error == code(ai::Error::WrongState)) {
            end(m_requests[int(analysis)]);
            setRunning(analysis, false);
        }
        emit changed();
    });
}

void LessonControl::follow(const QString &student)
{
    const QString id = m_link.newRequestID("follow");
    m_link.execute(
        ai::Command::StartFollowing, QVariantMap{{"stuID", student}},
        [this, student, id](const AiReply &reply) {
            if (reply.ok()) {
                m_followed[student] = id;
                setRunning(Analysis::Following, true);
            }
            emit changed();
        },
        id);
}

void LessonControl::stopFollowing(const QString &student)
{
    m_link.execute(ai::Command::StopFollowing,
                   QVariantMap{{"stuID", student}, {"requestID", m_followed.value(student)}},
                   [this, student](const AiReply &reply) {
                       if (!reply.ok())
                           return;
                       end(m_followed.take(student));
                       if (m_followed.isEmpty())
                           setRunning(Analysis::Following, false);
                   });
}

void LessonControl::findAttributes()
{
    m_link.execute(ai::Command::Attributes);
}

void LessonControl::startRecording(const QString &folder)
{
    m_link.execute(ai::Command::StartRecording, QVariantMap{{"recordPath", folder}},
                   [this](const AiReply &reply) {
                       m_recordingHere |= reply.ok() || reply.refusal() == AiReply::AlreadyStarted;
                       emit changed();
                   });
}

void LessonControl::stopRecording()
{
    m_link.execute(ai::Command::StopRecording, QVariantMap{}, [this](const AiReply &reply) {
        if (reply.ok() || reply.refusal() == AiReply::NotStarted)
            forgetRecording();
        emit changed();
    });
}

void LessonControl::reset()
{
    m_link.execute(ai::Command::Reset, QVariantMap{}, [this](const AiReply &reply) {
        if (!reply.ok())
            return;
        forgetRunning();
        m_model.clear();
    });
}

void LessonControl::refreshStudents()
{
    m_link.execute(ai::Command::BestPictures);
}

void LessonControl::enrol(const QString &name, const QString &faceText, const QRect &place, Done done)
{
    const QString id = m_link.newRequestID("enrol");
    const QVariantMap entry = withPlace({{"stuID", name}, {"faceImg", faceText}}, place);
    const bool isKnown = m_model.knows(name);
    const auto finish = [this, id, name, isKnown, done, place](const AiReply &reply) {
        const QStringList enrolled = m_registered.take(id);
        if (!reply.ok())
            return done(words::failure(ai::Command::RegisterStudents, reply));
        if (enrolled.contains(name)) {
            // The face that was clicked has a name now; the service tells that only when it looks again.
            m_model.nameFace(place, name);
            return done({});
        }
        done(isKnown ? tr("A student of this name is enrolled already.")
                     : tr("The recogniser did not take this face. A sharp picture that looks into the camera "
                          "helps."));
    };
    m_link.execute(ai::Command::RegisterStudents, QVariantMap{{"galleries", QVariantList{entry}}}, finish,
                   id);
}

void LessonControl::replaceFace(const QString &name, const QString &faceText, const QRect &place, Done done)
{
    m_link.execute(ai::Command::ReplaceFace,
                   withPlace({{"oldStuID", name}, {"faceImageBase64", faceText}}, place),
                   [this, done](const AiReply &reply) {
                       done(words::failure(ai::Command::ReplaceFace, reply));
                       refreshStudents();
                   });
}

void LessonControl::rename(const QString &from, const QString &to, Done done)
{
    m_link.execute(ai::Command::RenameStudent, QVariantMap{{"oldStuID", from}, {"newStuID", to}},
                   [this, from, to, done](const AiReply &reply) {
                       if (reply.ok())
                           m_model.rename(from, to);
                       done(words::failure(ai::Command::RenameStudent, reply));
                   });
}

void LessonControl::remove(const QString &name, Done done)
{
    m_link.execute(ai::Command::DeleteStudent, QVariantMap{{"stuID", name}},
                   [this, name, done](const AiReply &reply) {
                       if (reply.ok())
                           m_model.remove(name);
                       done(words::failure(ai::Command::DeleteStudent, reply));
                   });
}
