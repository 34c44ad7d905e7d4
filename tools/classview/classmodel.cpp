#include "classmodel.h"

#include "picture.h"

#include <algorithm>

namespace {

/// Rhythms in milliseconds. Faces and regions are told once, when somebody has asked.
constexpr double askedForRhythm = 30000;
constexpr double shortestRhythm = 700;
constexpr double longestRhythm = 15000;
constexpr double usualRhythm = 1500;
/// In rhythms: from here on a mark fades, and here it is gone.
constexpr double fadesFrom = 1.5;
constexpr double fadesUntil = 6;

constexpr int longestTrail = 120;
/// Limits of what a service may tell: more is cut off.
constexpr int mostEntries = 500;

QRect placeOf(const QVariantMap &entry)
{
    return {entry["x"].toInt(), entry["y"].toInt(), entry["width"].toInt(), entry["height"].toInt()};
}

QString nameOf(const QVariantMap &entry)
{
    return entry["stuID"].toString();
}

QImage imageOf(const QVariant &dataText)
{
    return QImage::fromData(picture::jpegOf(dataText.toString()), "JPG");
}

QVariantList entriesOf(const QVariantMap &info, const char *key)
{
    return info[QLatin1String(key)].toList().mid(0, mostEntries);
}

} // namespace

void ClassModel::take(const AiEvent &event, qint64 now)
{
    const QVariantMap &info = event.info;
    switch (event.event()) {
    case ai::Event::Faces:
        takeFaces(info, now);
        break;
    case ai::Event::Attention:
        takeAttention(info, now);
        break;
    case ai::Event::Hands:
        takeHands(info, now);
        break;
    case ai::Event::Followed:
        takeFollowed(event, now);
        break;
    case ai::Event::GameRegions: {
        QVector<Mark> regions;
        for (const auto &value : entriesOf(info, "functionGameShowRegion"))
            regions.append({MarkKind::Game, nameOf(value.toMap()), placeOf(value.toMap()), 0, now, {}});
        replaceMarks(MarkKind::Game, regions, now);
        break;
    }
    case ai::Event::Game:
        takeBones(info, now);
        break;
    case ai::Event::Attributes:
        takeAttributes(info);
        break;
    case ai::Event::Registered:
        for (const auto &value : entriesOf(info, "successList"))
            student(nameOf(value.toMap()));
        emit studentsChanged();
        break;
    case ai::Event::Smile: {
        auto smiles = m_marks[int(MarkKind::Smile)];
        const QString name = nameOf(info);
        const auto isHis = [&](const Mark &mark) { return mark.student == name || opacity(mark, now) <= 0; };
        smiles.erase(std::remove_if(smiles.begin(), smiles.end(), isHis), smiles.end());
        smiles.append({MarkKind::Smile, name, placeOf(info), 0, now, {}});
        m_marks[int(MarkKind::Smile)] = smiles;
        see(name, now);
        emit marksChanged();
        break;
    }
    case ai::Event::Recording:
        m_recording = m_lastRecording = info["videoLocalPath"].toString();
        emit stateChanged();
        break;
    case ai::Event::BestPictures:
        takePictures(info);
        break;
    case ai::Event::Video:
        seeVideo(info["status"].toInt() != 0, now);
        break;
    default:
        break;
    }
}

double ClassModel::rhythm(MarkKind kind) const
{
    switch (kind) {
    case MarkKind::Face:
        return askedForRhythm;
    case MarkKind::Game:
        return m_rhythm[int(kind)] > 0 ? m_rhythm[int(kind)] : askedForRhythm;
    case MarkKind::Body: // told by whichever comes
        return std::max(rhythm(MarkKind::Hand), rhythm(MarkKind::Attention));
    case MarkKind::Smile: // told together with the attention
        return rhythm(MarkKind::Attention);
    default:
        return m_rhythm[int(kind)] > 0 ? m_rhythm[int(kind)] : usualRhythm;
    }
}

double ClassModel::opacity(const Mark &mark, qint64 now) const
{
    const double age = double(now - mark.time) / rhythm(mark.kind);
    return std::clamp((fadesUntil - age) / (fadesUntil - fadesFrom), 0.0, 1.0);
}

QVector<Mark> ClassModel::marks(qint64 now) const
{
    QVector<Mark> shown;
    for (const auto &kind : m_marks)
        std::copy_if(kind.begin(), kind.end(), std::back_inserter(shown),
                     [&](const Mark &mark) { return opacity(mark, now) > 0; });
    return shown;
}

void ClassModel::replaceMarks(MarkKind kind, QVector<Mark> marks, qint64 now)
{
    const int index = int(kind);
    if (m_lastEvent[index] > 0) {
        const double interval = std::clamp(double(now - m_lastEvent[index]), shortestRhythm, longestRhythm);
        m_rhythm[index] = m_rhythm[index] > 0 ? 0.7 * m_rhythm[index] + 0.3 * interval : interval;
    }
    m_lastEvent[index] = now;
    m_marks[index] = std::move(marks);
    emit marksChanged();
}

void ClassModel::takeFaces(const QVariantMap &info, qint64 now)
{
    QVector<Mark> marks;
    m_faces.clear();
    for (const auto &value : entriesOf(info, "galleries")) {
        const auto entry = value.toMap();
        const auto shown = imageOf(entry["showImg"]);
        m_faces.append({nameOf(entry), placeOf(entry), entry["faceImg"].toString(),
                        shown.isNull() ? imageOf(entry["faceImg"]) : shown});
        marks.append({MarkKind::Face, nameOf(entry), placeOf(entry), 0, now, {}});
        if (knows(nameOf(entry)))
            see(nameOf(entry), now);
    }
    replaceMarks(MarkKind::Face, marks, now);
    emit studentsChanged();
}

void ClassModel::takeAttention(const QVariantMap &info, qint64 now)
{
    QVector<Mark> states, bodies;
    const auto entries = entriesOf(info, "studentStates");
    for (const auto &value : entries) {
        const auto entry = value.toMap();
        states.append({MarkKind::Attention, nameOf(entry), placeOf(entry), entry["state"].toInt(), now, {}});
        bodies.append({MarkKind::Body, nameOf(entry), placeOf(entry), 0, now, {}});
        see(nameOf(entry), now);
    }
    m_marks[int(MarkKind::Body)] = bodies;
    replaceMarks(MarkKind::Attention, states, now);
    LessonMoment moment;
    moment.time = now;
    if (!entries.isEmpty())
        moment.attention = info["concerntration"].toDouble() / entries.size();
    addMoment(moment);
}

void ClassModel::takeHands(const QVariantMap &info, qint64 now)
{
    QVector<Mark> hands;
    LessonMoment moment;
    moment.time = now;
    moment.tellsHands = true;
    auto &bodies = m_marks[int(MarkKind::Body)];
    for (const auto &value : entriesOf(info, "handupStudents")) {
        const auto entry = value.toMap();
        hands.append({MarkKind::Hand, nameOf(entry), placeOf(entry), 0, now, {}});
        moment.hands.append(nameOf(entry));
        const auto isHis = [&](const Mark &mark) { return mark.student == nameOf(entry); };
        bodies.erase(std::remove_if(bodies.begin(), bodies.end(), isHis), bodies.end());
        bodies.append({MarkKind::Body, nameOf(entry), placeOf(entry), 0, now, {}});
        see(nameOf(entry), now);
    }
    replaceMarks(MarkKind::Hand, hands, now);
    addMoment(moment);
}

void ClassModel::takeFollowed(const AiEvent &event, qint64 now)
{
    const QString name = nameOf(event.info);
    const QRect place = placeOf(event.info);
    auto marks = m_marks[int(MarkKind::Followed)];
    Mark mark{MarkKind::Followed, name, place, 0, now, {}};
    for (auto old = marks.begin(); old != marks.end();) {
        if (old->student == name)
            mark.points = old->points.mid(std::max(0, old->points.size() - longestTrail + 1));
        old = old->student == name ? marks.erase(old) : old + 1;
    }
    mark.points.append(place.center());
    marks.append(mark);
    see(name, now);
    replaceMarks(MarkKind::Followed, marks, now);
}

void ClassModel::takeBones(const QVariantMap &info, qint64 now)
{
    auto marks = m_marks[int(MarkKind::Game)];
    for (const auto &value : entriesOf(info, "functionGameResult")) {
        const auto player = value.toMap();
        QPolygon bones;
        for (const auto &bone : entriesOf(player, "bones"))
            bones.append({bone.toMap()["x"].toInt(), bone.toMap()["y"].toInt()});
        for (auto &mark : marks) {
            if (mark.student != nameOf(player))
                continue;
            mark.points = bones;
            mark.time = now;
        }
    }
    replaceMarks(MarkKind::Game, marks, now);
}

void ClassModel::takePictures(const QVariantMap &info)
{
    // The event is the whole list: whoever is not in it is not enrolled.
    QMap<QString, Student> told;
    for (const auto &value : info["bestGalleries"].toList()) {
        const auto entry = value.toMap();
        Student known = m_students.value(nameOf(entry));
        known.name = nameOf(entry);
        known.score = entry["score"].toDouble();
        const QImage picture = imageOf(entry["bestFaceImg"]);
        if (!picture.isNull())
            known.picture = picture;
        told.insert(known.name, known);
    }
    m_students = told;
    emit studentsChanged();
}

void ClassModel::takeAttributes(const QVariantMap &info)
{
    for (const auto &value : entriesOf(info, "studentsAttribute")) {
        const auto entry = value.toMap();
        const QString row = tr("row %1").arg(entry["row"].toInt());
        if (knows(nameOf(entry)))
            student(nameOf(entry)).attributes =
                entry["glass"].toBool() ? tr("%1, glasses", "a row").arg(row) : row;
    }
    emit studentsChanged();
}

Student &ClassModel::student(const QString &name)
{
    Student &found = m_students[name];
    found.name = name;
    return found;
}

void ClassModel::see(const QString &name, qint64 now)
{
    if (!name.isEmpty())
        student(name).lastSeen = now;
}

void ClassModel::addMoment(const LessonMoment &moment)
{
    while (!m_lesson.isEmpty() && moment.time - m_lesson.first().time > lessonLength)
        m_lesson.removeFirst();
    m_lesson.append(moment);
    emit lessonChanged();
}

void ClassModel::seeVideo(bool isThere, qint64 now)
{
    if (m_video == isThere)
        return;
    m_video = isThere;
    LessonMoment moment;
    moment.time = now;
    moment.video = m_video;
    addMoment(moment);
    emit stateChanged();
}

void ClassModel::rename(const QString &from, const QString &to)
{
    for (auto &marks : m_marks)
        for (Mark &mark : marks)
            if (mark.student == from)
                mark.student = to;
    for (FoundFace &face : m_faces)
        if (face.student == from)
            face.student = to;
    if (knows(from)) {
        Student renamed = m_students.take(from);
        renamed.name = to;
        m_students.insert(to, renamed);
    }
    emit marksChanged();
    emit studentsChanged();
}

void ClassModel::remove(const QString &name)
{
    rename(name, {});
    m_students.remove({});
    for (auto &marks : m_marks) {
        const auto isNobodys = [](const Mark &mark) {
            return mark.student.isEmpty() && mark.kind != MarkKind::Face;
        };
        marks.erase(std::remove_if(marks.begin(), marks.end(), isNobodys), marks.end());
    }
    emit marksChanged();
    emit studentsChanged();
}

void ClassModel::nameFace(const QRect &place, const QString &name)
{
    for (Mark &mark : m_marks[int(MarkKind::Face)])
        if (mark.place == place && mark.student.isEmpty())
            mark.student = name;
    for (FoundFace &face : m_faces) {
        if (face.place != place || !face.student.isEmpty())
            continue;
        face.student = name;
        Student &enrolled = student(name);
        if (enrolled.picture.isNull())
            enrolled.picture = face.picture;
    }
    emit marksChanged();
    emit studentsChanged();
}

void ClassModel::stopped(MarkKind kind)
{
    m_marks[int(kind)].clear();
    m_lastEvent[int(kind)] = 0;
    m_rhythm[int(kind)] = 0;
    emit marksChanged();
}

void ClassModel::clear()
{
    for (auto &marks : m_marks)
        marks.clear();
    m_faces.clear();
    m_students.clear();
    emit marksChanged();
    emit studentsChanged();
}
