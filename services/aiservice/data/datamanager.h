#pragma once

#include "studentinfo.h"

#include <QMap>
#include <QMutex>
#include <QObject>
#include <QVector>

/**
 * The table of the class: one StudentInfo for each registered student, by student id.
 *
 * It is the live truth; the store is a snapshot of it. Threads: every operation may be called from any
 * thread and holds one lock for its whole length, so it is atomic against the others. Results are copies,
 * no reference to a record leaves the class. Writers put a new matrix into the record and never write into
 * pixels that a copy may share.
 *
 * Errors: a lookup that finds nobody gives a default record, -1, an empty text or false; nothing throws.
 * Operations by face id take the first match in key order.
 */
class DataManager : public QObject
{
    Q_OBJECT

public:
    static DataManager *instance();

    /// False, with a warning, if the id is taken.
    bool addStudent(const StudentInfo &student);
    /// Replaces the whole record. False, with a warning, for an unknown id.
    bool updateStudent(const StudentInfo &student);
    /// Gives a record another key; a record there is overwritten. False, with a warning, for an unknown id.
    bool updateStudentID(const QString &oldID, const QString &newID);
    bool removeStudent(const QString &stuID);
    void clear();

    /// Warns in the log when the student is there.
    bool isStudentExist(const QString &stuID);
    int count();
    int getFaceID(const QString &stuID);
    StudentInfo getStudentInfo(const QString &stuID);
    StudentInfo getStudentInfo(int faceID);
    QString getStudentID(int faceID);

    /// All lists are in key order.
    QVector<StudentInfo> getAllStudents();
    /// Those that the current matching pass has found.
    QVector<StudentInfo> getFoundStudents();
    /// Those not yet found whose face is not in the recogniser's gallery.
    QVector<StudentInfo> getNoFaceIDStudents();
    /// Those not yet found that have a body rectangle from an earlier pass.
    QVector<StudentInfo> getUnfoundBodyStudents();

    /// Opens a matching pass: nobody is found yet.
    void resetStatus();
    /// Moves the body; a status of 0 or less keeps the record's own. False for an unknown face id.
    bool updateBodyRect(int faceID, const cv::Rect &rect, int status);
    /// Moves the face, folds the feature into meanFeature, and keeps faceImage as bestGallery if the feature
    /// is the best match so far. A feature that does not fit meanFeature, or holds anything but finite
    /// numbers, only moves the face. False for an unknown face id.
    bool updateFaceRect(int faceID, const cv::Rect &rect, const cv::Mat &feature, cv::Mat faceImage);
    /// Keeps a deep copy of the crop. False for an unknown face id.
    bool updateBodyMat(int faceID, cv::Mat bodyMat);

    /// Numbers the rows of the class by the bodies' upper edges, 1 nearest the camera. A row is a band of 91
    /// pixel lines at most, measured from its lowest student.
    void sortStudentRows();

    /// For debugging: draws the found students on the frame and, in a program with windows, shows it.
    void showStudents(cv::Mat frame);

private:
    using Students = QMap<QString, StudentInfo>;

    DataManager() = default;

    template <class Condition>
    QVector<StudentInfo> studentsWith(Condition condition);
    /// The record with the face id, or null. The lock is held.
    StudentInfo *findByFaceID(int faceID);

    Students m_students;
    QMutex m_mutex;
};
