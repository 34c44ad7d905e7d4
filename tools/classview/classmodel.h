#pragma once

#include "aiclient.h"

#include <QImage>
#include <QList>
#include <QMap>
#include <QPolygon>
#include <QRect>
#include <QVector>

#include <optional>

/// What is drawn over the picture, and can be switched off one by one.
enum class MarkKind
{
    Face,
    Body,
    Hand,
    Attention,
    Smile,
    Followed,
    Game
};
constexpr int markKinds = 7;

/// Something that an event has told of a place in the picture.
struct Mark
{
    MarkKind kind = MarkKind::Face;
    QString student; ///< empty for a face that nobody knows
    QRect place;     ///< pixels of the camera's frame
    int state = 0;   ///< of Attention: the pose class
    qint64 time = 0; ///< when it was told, on the model's clock
    QPolygon points; ///< of Followed the way so far, oldest first; of Game the bones
};

/// A face that the service found, with what it takes to enrol it.
struct FoundFace
{
    QString student; ///< empty when nobody known
    QRect place;
    QString faceText; ///< JPEG data text, the crop to register
    QImage picture;
};

struct Student
{
    QString name;
    QImage picture;
    double score = 0;
    qint64 lastSeen = -1; ///< on the model's clock; -1 for never
    QString attributes;   ///< for people to read
};

/// One moment of the lesson.
struct LessonMoment
{
    qint64 time = 0;
    std::optional<double> attention; ///< mean of the students that were seen
    QStringList hands;               ///< whose hand is up; of moments that tell hands
    bool tellsHands = false;
    std::optional<bool> video;
};

/**
 * What the viewer knows of the class: taken from events, and from what the viewer itself has asked for.
 *
 * All times are milliseconds on a clock of the caller's that only goes forward. Threads: one.
 */
class ClassModel : public QObject
{
    Q_OBJECT

public:
    void take(const AiEvent &event, qint64 now);

    /// Everything that is still to be seen at that time.
    QVector<Mark> marks(qint64 now) const;
    /// 1 for what is no older than the rhythm of its kind, then less and less, 0 for what is not shown any
    /// more.
    double opacity(const Mark &mark, qint64 now) const;

    const QVector<FoundFace> &faces() const { return m_faces; }
    /// Sorted by name.
    QList<Student> students() const { return m_students.values(); }
    bool knows(const QString &student) const { return m_students.contains(student); }
    /// The last minutes, oldest first.
    const QList<LessonMoment> &lesson() const { return m_lesson; }
    static constexpr qint64 lessonLength = 10 * 60 * 1000;

    /// Unknown until an event tells.
    std::optional<bool> video() const { return m_video; }
    /// The file that is being written; empty when none is known of.
    QString recordingFile() const { return m_recording; }
    /// That one, or the one that was written last.
    QString lastRecording() const { return m_lastRecording; }

    /// What the viewer's own requests have changed, which no event tells.
    void rename(const QString &from, const QString &to);
    void remove(const QString &student);
    /// The unknown face at that place has been enrolled.
    void nameFace(const QRect &place, const QString &student);
    void recordingStopped() { m_recording.clear(); }
    /// Whether the viewer itself sees new frames: the service tells changes only.
    void seeVideo(bool isThere, qint64 now);
    /// The analysis that tells this kind was stopped: its marks go.
    void stopped(MarkKind kind);
    /// A reset, or another service: nobody is enrolled and nothing was seen.
    void clear();

signals:
    /// Marks have come or gone.
    void marksChanged();
    void studentsChanged();
    void lessonChanged();
    /// Video or recording.
    void stateChanged();

private:
    void replaceMarks(MarkKind kind, QVector<Mark> marks, qint64 now);
    void takeFaces(const QVariantMap &info, qint64 now);
    void takeAttention(const QVariantMap &info, qint64 now);
    void takeHands(const QVariantMap &info, qint64 now);
    void takeFollowed(const AiEvent &event, qint64 now);
    void takeBones(const QVariantMap &info, qint64 now);
    void takePictures(const QVariantMap &info);
    void takeAttributes(const QVariantMap &info);
    void see(const QString &student, qint64 now);
    void addMoment(const LessonMoment &moment);
    Student &student(const QString &name);
    double rhythm(MarkKind kind) const;

    QVector<Mark> m_marks[markKinds];
    double m_rhythm[markKinds] = {}; ///< measured, milliseconds; 0 before the second event
    qint64 m_lastEvent[markKinds] = {};
    QVector<FoundFace> m_faces;
    QMap<QString, Student> m_students;
    QList<LessonMoment> m_lesson;
    std::optional<bool> m_video;
    QString m_recording;
    QString m_lastRecording;
};
