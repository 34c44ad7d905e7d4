#pragma once

#include "protocol.h"

#include <opencv2/core.hpp>

#include <QElapsedTimer>
#include <QString>
#include <QVariantMap>

#include <atomic>
#include <functional>

/**
 * The students, in the four places where each of them lives. A step touches them in a fixed order, without a
 * transaction: one that fails leaves the earlier ones done.
 *
 * |                    | recogniser's gallery          | DataManager | ExternalGallery   | store, "ai.data" |
 * |--------------------|-------------------------------|-------------|-------------------|------------------|
 * | enrol              | 1 add (small face: and remove)| 2 add       | 3 flag off        | 4 insert         |
 * | drop               | 1 remove                      | 2 remove    | 3 flag on         | 4 delete         |
 * | replace            | drop, then enrol              |             |                   |                  |
 * | rename             | 1 remove who has the new id   | 2 new key   | 4 old on, new off | 3 delete, rename |
 * | addExternalFace    | 1 extract a feature           |             | 2 set             | 3 insert         |
 * | clearExternalFaces |                               |             | 1 clear           | 2 clear          |
 * | clear              | 2 clear                       | 3 clear     | 1 clear           |                  |
 * | clearStudents      | 1 clear                       | 2 clear     |                   |                  |
 * | forget             | 2 clear                       | 3 clear     | 1 clear           | 4 file removed   |
 * | save               |                               | read        |                   | update           |
 * | restore            |                               | replace     |                   |                  |
 *
 * In a recovery nothing is written to the store, and an exception costs one student.
 *
 * Threads: one step at a time, on request threads; only save runs beside the others.
 */
class Classroom
{
public:
    /// The recovery of a class lasts as long as this lives. Tells its progress in the log once a second.
    class Recovery
    {
    public:
        explicit Recovery(Classroom &classroom);
        ~Recovery();
        Recovery(const Recovery &) = delete;
        Recovery &operator=(const Recovery &) = delete;

        /// What the next steps bring back, and how many of them are expected.
        void begin(const char *what, int count);
        /// Enrolments that the recogniser has refused.
        int refusedFaces() const { return m_classroom.m_refusedFaces; }

    private:
        Classroom &m_classroom;
    };

    bool isRecovering() const { return m_recovering; }

    /// Whether the student is known by it: the id is free, the picture good and the recogniser takes it.
    /// @param faceImg JPEG data text of a head crop of 128 by 128
    /// @param rect the face in frame pixels
    bool enrol(const QString &stuID, const QString &faceImg, const cv::Rect &rect);
    /// None; NoStudent, or Failed when the recogniser doesn't let the face go.
    ai::Error drop(const QString &stuID);
    /// Drops the student, if he is known, and enrols him with another face. Whether the second step succeeds.
    bool replace(const QString &stuID, const QString &faceImg, const cv::Rect &rect);
    /// Gives a student another id; whoever has that makes room. None or NoStudent.
    ai::Error rename(const QString &oldID, const QString &newID);
    /// Sets where a student was and how his best picture looked from a row of the store; nothing for an
    /// unknown one.
    void restore(const QVariantMap &row);

    /// Takes the face of somebody who needn't be a student. False for a picture or a face that is no good.
    bool addExternalFace(const QString &stuID, const QString &faceImg);
    void clearExternalFaces();

    /// Everybody in memory.
    void clear();
    /// The enrolled students in memory.
    void clearStudents();
    /// Everybody, and the store's file.
    void forget();

    /// Brings the rows of the store up to the records.
    void save();

private:
    /// Carries out what concerns one student. In a recovery an exception makes it false, any other time it
    /// passes through.
    bool forStudent(const QString &stuID, const std::function<bool()> &step);
    bool enrolFace(const QString &stuID, const QString &faceImg, const cv::Rect &rect);
    bool extractExternalFace(const QString &stuID, const QString &faceImg);
    void tellProgress();

    std::atomic<bool> m_recovering{false}; ///< nothing is written to the store

    // Of the last recovery.
    int m_refusedFaces = 0;
    const char *m_progressOf = "";
    int m_stepsDone = 0;
    int m_stepsExpected = 0;
    QElapsedTimer m_lastProgress;
};
