#include "datamanager.h"

#include "feature.h"

#include <opencv2/highgui.hpp>
#include <opencv2/imgproc.hpp>

#include <QCoreApplication>
#include <QDebug>

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

constexpr int rowHeight = 90;

cv::Mat inDoublePrecision(const cv::Mat &feature)
{
    cv::Mat result;
    feature.convertTo(result, CV_64F);
    return result;
}

/// Features come out of foreign libraries; one that would spoil the record is left out.
void foldFeature(StudentInfo &student, const cv::Mat &newFeature, const cv::Mat &faceImage)
{
    if (!feature::fits(student.meanFeature, newFeature))
        return;
    const cv::Mat f = inDoublePrecision(newFeature);
    const double ff = f.dot(f);
    if (!std::isfinite(ff))
        return;

    const int n = ++student.featureCount;
    // A new matrix: copies of the record share the pixels of the old one.
    const cv::Mat meanFeature = n * student.meanFeature + newFeature / (n + 1);
    student.meanFeature = meanFeature;

    const cv::Mat mean = inDoublePrecision(meanFeature);
    const double cosine = mean.dot(f) / (std::sqrt(mean.dot(mean)) * std::sqrt(ff));
    if (cosine > student.galleryScore) {
        student.bestGallery = faceImage.clone();
        student.galleryScore = cosine;
    }
}

void drawStudent(cv::Mat &frame, const StudentInfo &student)
{
    const QString label = QString::number(student.faceID) + "_" + student.stuID;
    cv::putText(frame, label.toStdString(), student.bodyRect.tl(), cv::FONT_HERSHEY_PLAIN, 1.0,
                cv::Scalar(0, 0, 255));
    if (student.status == 1)
        cv::rectangle(frame, student.bodyRect, cv::Scalar(255, 0, 0));
    else if (student.status == 2)
        cv::rectangle(frame, student.bodyRect, cv::Scalar(0, 0, 255));
    else if (student.status == 3)
        cv::rectangle(frame, student.bodyRect, cv::Scalar(0, 255, 0));
}

/// OpenCV's windows abort a process whose application object has none.
bool hasWindows()
{
    const QCoreApplication *application = QCoreApplication::instance();
    return application && application->inherits("QApplication");
}

} // namespace

DataManager *DataManager::instance()
{
    static DataManager manager;
    return &manager;
}

bool DataManager::addStudent(const StudentInfo &student)
{
    QMutexLocker locker(&m_mutex);
    if (m_students.contains(student.stuID)) {
        qWarning() << "can not add a student who has exist";
        return false;
    }
    m_students.insert(student.stuID, student);
    qInfo().noquote().nospace() << "add stuid: " << student.stuID << " fid: " << student.faceID;
    return true;
}

bool DataManager::updateStudent(const StudentInfo &student)
{
    QMutexLocker locker(&m_mutex);
    const auto found = m_students.find(student.stuID);
    if (found == m_students.end()) {
        qWarning() << "can not update a student who don't exist";
        return false;
    }
    *found = student;
    return true;
}

bool DataManager::updateStudentID(const QString &oldID, const QString &newID)
{
    QMutexLocker locker(&m_mutex);
    if (!m_students.contains(oldID)) {
        qWarning().noquote().nospace() << "update studentID,old student id: " << oldID << " can't found";
        return false;
    }
    StudentInfo student = m_students.take(oldID);
    student.stuID = newID;
    m_students.insert(newID, student);
    return true;
}

bool DataManager::removeStudent(const QString &stuID)
{
    QMutexLocker locker(&m_mutex);
    return m_students.remove(stuID) > 0;
}

void DataManager::clear()
{
    QMutexLocker locker(&m_mutex);
    m_students.clear();
}

bool DataManager::isStudentExist(const QString &stuID)
{
    QMutexLocker locker(&m_mutex);
    if (!m_students.contains(stuID))
        return false;
    qWarning().noquote().nospace() << "stuID: " << stuID << " exist";
    return true;
}

int DataManager::count()
{
    QMutexLocker locker(&m_mutex);
    return m_students.size();
}

int DataManager::getFaceID(const QString &stuID)
{
    QMutexLocker locker(&m_mutex);
    return m_students.value(stuID).faceID;
}

StudentInfo DataManager::getStudentInfo(const QString &stuID)
{
    QMutexLocker locker(&m_mutex);
    return m_students.value(stuID);
}

StudentInfo DataManager::getStudentInfo(int faceID)
{
    QMutexLocker locker(&m_mutex);
    const StudentInfo *student = findByFaceID(faceID);
    return student ? *student : StudentInfo();
}

QString DataManager::getStudentID(int faceID)
{
    QMutexLocker locker(&m_mutex);
    const StudentInfo *student = findByFaceID(faceID);
    return student ? student->stuID : QString();
}

template <class Condition>
QVector<StudentInfo> DataManager::studentsWith(Condition condition)
{
    QVector<StudentInfo> result;
    result.reserve(m_students.size());
    std::copy_if(m_students.cbegin(), m_students.cend(), std::back_inserter(result), condition);
    return result;
}

QVector<StudentInfo> DataManager::getAllStudents()
{
    QMutexLocker locker(&m_mutex);
    return studentsWith([](const StudentInfo &) { return true; });
}

QVector<StudentInfo> DataManager::getFoundStudents()
{
    QMutexLocker locker(&m_mutex);
    return studentsWith([](const StudentInfo &student) { return student.status >= 1; });
}

QVector<StudentInfo> DataManager::getNoFaceIDStudents()
{
    QMutexLocker locker(&m_mutex);
    return studentsWith(
        [](const StudentInfo &student) { return student.status == 0 && !student.faceIDValid; });
}

QVector<StudentInfo> DataManager::getUnfoundBodyStudents()
{
    QMutexLocker locker(&m_mutex);
    return studentsWith([](const StudentInfo &student) {
        return student.status == 0 && student.bodyRect.width >= 1 && student.bodyRect.height >= 1;
    });
}

void DataManager::resetStatus()
{
    QMutexLocker locker(&m_mutex);
    for (StudentInfo &student : m_students)
        student.status = 0;
}

bool DataManager::updateBodyRect(int faceID, const cv::Rect &rect, int status)
{
    QMutexLocker locker(&m_mutex);
    StudentInfo *student = findByFaceID(faceID);
    if (!student)
        return false;
    student->bodyRect = rect;
    // In 64 bits: a restored rectangle may hold any numbers.
    student->bodyCenterX = static_cast<int>(qint64(rect.x) + rect.width / 2);
    student->bodyCenterY = static_cast<int>(qint64(rect.y) + rect.height / 2);
    if (status > 0)
        student->status = status;
    return true;
}

bool DataManager::updateFaceRect(int faceID, const cv::Rect &rect, const cv::Mat &feature, cv::Mat faceImage)
{
    QMutexLocker locker(&m_mutex);
    StudentInfo *student = findByFaceID(faceID);
    if (!student)
        return false;
    student->faceRect = rect;
    foldFeature(*student, feature, faceImage);
    return true;
}

bool DataManager::updateBodyMat(int faceID, cv::Mat bodyMat)
{
    QMutexLocker locker(&m_mutex);
    StudentInfo *student = findByFaceID(faceID);
    if (!student)
        return false;
    student->bodyMat = bodyMat.clone();
    return true;
}

void DataManager::sortStudentRows()
{
    QMutexLocker locker(&m_mutex);
    if (m_students.isEmpty())
        return;

    std::vector<StudentInfo *> students;
    students.reserve(static_cast<size_t>(m_students.size()));
    for (StudentInfo &student : m_students)
        students.push_back(&student);
    std::sort(students.begin(), students.end(), [](const StudentInfo *first, const StudentInfo *second) {
        return first->bodyRect.y > second->bodyRect.y;
    });

    int row = 1;
    qint64 referenceY = students.front()->bodyRect.y;
    for (StudentInfo *student : students) {
        if (referenceY - student->bodyRect.y > rowHeight) {
            ++row;
            referenceY = student->bodyRect.y;
        }
        student->row = row;
    }
}

void DataManager::showStudents(cv::Mat frame)
{
    QMutexLocker locker(&m_mutex);
    if (frame.empty())
        return;
    try {
        for (const StudentInfo &student : qAsConst(m_students)) {
            if (student.status >= 1)
                drawStudent(frame, student);
        }
        if (!hasWindows())
            return;
        cv::imshow("", frame);
        cv::waitKey(1);
    } catch (const cv::Exception &exception) {
        qWarning() << "show students failed:" << exception.what();
    }
}

StudentInfo *DataManager::findByFaceID(int faceID)
{
    const auto found =
        std::find_if(m_students.begin(), m_students.end(),
                     [faceID](const StudentInfo &student) { return student.faceID == faceID; });
    return found == m_students.end() ? nullptr : &*found;
}
