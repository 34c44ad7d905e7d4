#include "classroom.h"

#include "aiconfig.h"
#include "datamanager.h"
#include "externalgallery.h"
#include "imageutil.h"
#include "modelmanager.h"
#include "qstorage.h"
#include "rectutil.h"

#include <QDebug>

using ai::Error;

namespace {

/// The head crop of a JPEG data text; empty unless it has the side of a gallery picture.
cv::Mat decodeGallery(const QString &faceImg)
{
    const cv::Mat face = ai_image::convertBase642Mat(faceImg);
    const int side = AIConfig::instance().registerFaceSize;
    return face.cols == side && face.rows == side ? face : cv::Mat();
}

/// Sides from 20 to 39 pixels are too small for the recogniser's gallery; those below 20 aren't judged.
bool isSmallSide(int side)
{
    return side >= AIConfig::instance().registerFaceMinSize && side < AIConfig::instance().faceMinSize;
}

bool removeFace(int faceID)
{
    const cv::Mat none;
    return ModelManager::instance().createFaceIDModel(none, FaceIDModel::Remove, faceID)->detect();
}

} // namespace

bool Classroom::enrol(const QString &stuID, const QString &faceImg, const cv::Rect &rect)
{
    return forStudent(stuID, [&] { return enrolFace(stuID, faceImg, rect); });
}

bool Classroom::enrolFace(const QString &stuID, const QString &faceImg, const cv::Rect &rect)
{
    if (stuID.isEmpty() || faceImg.isEmpty()) {
        qWarning("[registerGallery] param null");
        return false;
    }
    if (DataManager::instance()->isStudentExist(stuID)) {
        qWarning().noquote().nospace() << "[registerGallery] student is exist,stuID: " << stuID;
        return false;
    }
    const cv::Mat face = decodeGallery(faceImg);
    if (face.empty()) {
        qWarning("[registerGallery] convert base64 failed");
        return false;
    }
    const auto model = ModelManager::instance().createFaceIDModel(face, FaceIDModel::RegisterAndExtract, -1);
    if (!model->detect()) {
        qWarning().noquote().nospace() << "[registerGallery] register failed,student: " << stuID;
        ++m_refusedFaces;
        return false;
    }

    StudentInfo student;
    if (isSmallSide(rect.width) || isSmallSide(rect.height)) {
        student.faceIDValid = false;
        if (!removeFace(model->m_id)) {
            qWarning().noquote().nospace() << "[registerGallery] register delete failed,student: " << stuID;
            return false;
        }
    }
    student.stuID = stuID;
    student.faceID = model->m_id;
    student.faceRect = rect;
    student.galleryImage = face.clone();
    student.bestGallery = face.clone();
    student.registerFeature = model->m_feature.clone();
    student.meanFeature = model->m_feature.clone();
    qInfo().noquote().nospace() << "[registerGallery] stuID: " << stuID << " faceID: " << student.faceID
                                << rect_util::text(rect);
    qDebug().noquote().nospace() << "[registerGallery] stduID: " << stuID << " faceImg: " << faceImg;
    if (!DataManager::instance()->addStudent(student)) {
        qWarning().noquote().nospace() << "[registerGallery] add failed,student: " << stuID;
        return false;
    }
    ExternalGallery::instance()->disableFaceFeature(stuID);
    if (!m_recovering)
        QSqliteStorage::instance()->addFaceMat(stuID, faceImg, rect);
    return true;
}

Error Classroom::drop(const QString &stuID)
{
    const int faceID = DataManager::instance()->getFaceID(stuID);
    if (faceID < 0) {
        qWarning().noquote().nospace() << "[deleteGallery] failed,stuID: " << stuID << " not found";
        return Error::NoStudent;
    }
    if (!removeFace(faceID)) {
        qWarning().noquote().nospace() << "[deleteGallery] failed,faceID delete error,student: " << stuID;
        return Error::Failed;
    }
    qInfo().noquote().nospace() << "[deleteGallery] stuID: " << stuID << " faceID: " << faceID;
    if (!DataManager::instance()->removeStudent(stuID)) {
        qWarning().noquote().nospace() << "[deleteGallery] remove failed,student: " << stuID;
        return Error::NoStudent;
    }
    ExternalGallery::instance()->enableFaceFeature(stuID);
    if (!m_recovering)
        QSqliteStorage::instance()->deleteStudent(stuID);
    return Error::None;
}

bool Classroom::replace(const QString &stuID, const QString &faceImg, const cv::Rect &rect)
{
    // A delete that fails, say of a student whom nobody knows, doesn't stop the registration.
    drop(stuID);
    return enrol(stuID, faceImg, rect);
}

Error Classroom::rename(const QString &oldID, const QString &newID)
{
    const bool unchanged = newID == oldID; // nobody's place is taken, and nothing has to move
    const int takenFace = unchanged ? -1 : DataManager::instance()->getFaceID(newID);
    if (takenFace >= 0) {
        if (removeFace(takenFace))
            qWarning().noquote().nospace() << "[updateStuID] faceID delete success,student: " << newID;
        else
            qWarning().noquote().nospace() << "[updateStuID] failed,faceID delete error,student: " << newID;
    }
    if (!DataManager::instance()->updateStudentID(oldID, newID)) {
        qWarning().noquote().nospace()
            << "[updateStudentID] update failed, old stuID: " << oldID << " new stuID: " << newID;
        return Error::NoStudent;
    }
    qInfo().noquote().nospace() << "[updateStudentID] success,old stuID: " << oldID
                                << " new stuID: " << newID;
    if (unchanged)
        return Error::None;
    if (!m_recovering) {
        QSqliteStorage::instance()->deleteStudent(newID);
        QSqliteStorage::instance()->updateStudentName(oldID, newID);
    }
    ExternalGallery::instance()->enableFaceFeature(oldID);
    ExternalGallery::instance()->disableFaceFeature(newID);
    return Error::None;
}

bool Classroom::addExternalFace(const QString &stuID, const QString &faceImg)
{
    return forStudent(stuID, [&] { return extractExternalFace(stuID, faceImg); });
}

bool Classroom::extractExternalFace(const QString &stuID, const QString &faceImg)
{
    const cv::Mat face = decodeGallery(faceImg);
    if (face.empty()) {
        qWarning("convert base64 failed");
        return false;
    }
    qDebug().noquote().nospace() << "[ExternalGallery] stuID:  " << stuID << " img: " << faceImg;
    const auto model = ModelManager::instance().createFaceIDModel(face, FaceIDModel::Extract, -1);
    if (!model->detect()) {
        qWarning("faceID detect feature error");
        return false;
    }
    cv::Mat feature = model->m_feature.clone();
    ExternalGallery::instance()->addFaceFeature(stuID, feature);
    if (!m_recovering)
        QSqliteStorage::instance()->setHistoryGalleries(stuID, faceImg);
    return true;
}

void Classroom::clearExternalFaces()
{
    ExternalGallery::instance()->clear();
    if (!m_recovering)
        QSqliteStorage::instance()->clearHistoryGalleries();
}

void Classroom::clear()
{
    ExternalGallery::instance()->clear();
    clearStudents();
}

void Classroom::clearStudents()
{
    qInfo("[deleteAllGalleries] begin");
    const cv::Mat none;
    if (!ModelManager::instance().createFaceIDModel(none, FaceIDModel::Clear, -1)->detect())
        qWarning("[deleteAllGalleries] faceid clear failed");
    DataManager::instance()->clear();
    qWarning("[deleteAllGalleries] end");
}

void Classroom::forget()
{
    clear();
    QSqliteStorage::instance()->remove();
}

void Classroom::save()
{
    for (const StudentInfo &student : DataManager::instance()->getAllStudents())
        QSqliteStorage::instance()->updateStudentInfo(student);
    qInfo("storage");
}
