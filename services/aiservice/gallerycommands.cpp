// The commands by which the client enrols, replaces, renames and deletes students.

#include "aiservicecontroller.h"

#include "aiconfig.h"
#include "basestrategy.h"
#include "commandreply.h"
#include "datamanager.h"
#include "externalgallery.h"
#include "imageutil.h"
#include "messageSender.h"
#include "modelmanager.h"
#include "qstorage.h"
#include "rectutil.h"

#include <QDebug>

using ai::Error;
using ai::Event;
using command::reply;

namespace {

QString text(const QVariantMap &params, const char *key)
{
    return params.value(QLatin1String(key)).toString();
}

QVariantMap studentEntry(const QString &stuID)
{
    return {{QStringLiteral("stuID"), stuID}};
}

bool isGalleryEntry(const QVariantMap &entry)
{
    return entry.contains(QStringLiteral("stuID")) && entry.contains(QStringLiteral("faceImg"));
}

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

} // namespace

bool AIServiceController::removeFace(int faceID)
{
    const cv::Mat none;
    return ModelManager::instance().createFaceIDModel(none, FaceIDModel::Remove, faceID)->detect();
}

void AIServiceController::forStudent(const QString &stuID, const std::function<void()> &step)
{
    if (!m_recovering) {
        step();
        return;
    }
    try {
        step();
    } catch (const std::exception &exception) {
        qCritical().noquote().nospace() << "[recover] student " << stuID << " is lost: " << exception.what();
    } catch (...) {
        qCritical().noquote().nospace() << "[recover] student " << stuID << " is lost: unknown exception";
    }
}

bool AIServiceController::addExternalFace(const QString &stuID, const QString &faceImg)
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

QVariantMap AIServiceController::setExternalGallery(const QVariantMap &params, const QString &)
{
    const QVariantList galleries = params.value(QStringLiteral("galleries")).toList();
    if (galleries.isEmpty()) {
        qWarning("[setExternalGallery] galleries empty");
        return reply(Error::BadParameters);
    }
    QVariantList failed;
    for (const QVariant &gallery : galleries) {
        const QVariantMap entry = gallery.toMap();
        if (!isGalleryEntry(entry)) {
            qWarning("params data is invalid");
            return reply(Error::BadParameters);
        }
        const QString stuID = text(entry, "stuID");
        forStudent(stuID, [&] {
            if (!addExternalFace(stuID, text(entry, "faceImg")))
                failed.append(studentEntry(stuID));
        });
    }
    QVariantMap result = reply(Error::None);
    result.insert(QStringLiteral("rsp_data"), QVariantMap{{QStringLiteral("failedStuList"), failed}});
    return result;
}

QVariantMap AIServiceController::fetchGalleryNew(const QVariantMap &params, const QString &requestID)
{
    StudentInfo student;
    if (!params.isEmpty()) {
        const QString stuID = text(params, "stuID");
        qInfo().noquote().nospace() << "[fetchGalleryNew] stuID: " << stuID;
        student = DataManager::instance()->getStudentInfo(stuID);
        if (student.stuID.isEmpty()) {
            qWarning().noquote().nospace() << "[fetchGalleryNew] stuID: " << stuID << " not found";
            return reply(Error::NoStudent);
        }
    }
    const bool wholeClass = student.stuID.isEmpty();
    const Started started =
        startStrategy(QStringLiteral("GalleryStrategyNew"), requestID, [&](BaseStrategy &strategy) {
            if (wholeClass)
                return strategy.startWithinFrames(3);
            QVariantMap place = studentEntry(student.stuID);
            rect_util::insert(place, student.faceRect);
            strategy.setParameters(place); // also of one that runs, although the start is refused then
            return strategy.startWithinFrames(1);
        });
    if (started == Started::notProvided) {
        qWarning("[fetchGalleryNew] failed to create gallery strategy");
        return reply(Error::NoAnalysis);
    }
    if (started == Started::refused) {
        qWarning("[fetchGalleryNew] already start");
        return reply(Error::WrongState, "fetch galleries already start");
    }
    return reply(Error::None);
}

QVariantMap AIServiceController::registerGallery(const QVariantMap &params, const QString &requestID)
{
    const QVariantList galleries = params.value(QStringLiteral("galleries")).toList();
    if (galleries.isEmpty()) {
        qWarning("[registerGallery] galleries empty");
        return reply(Error::BadParameters);
    }
    const AIConfig &config = AIConfig::instance();
    QVariantList registered;
    for (const QVariant &gallery : galleries) {
        const QVariantMap entry = gallery.toMap();
        if (!isGalleryEntry(entry)) {
            qWarning("params data is invalid");
            continue;
        }
        cv::Rect rect = rect_util::fromMap(entry);
        rect.x = std::max(rect.x, 0);
        rect.y = std::max(rect.y, 0);
        rect.width = std::min(config.frameWidth, rect.width);
        rect.height = std::min(config.frameHeight, rect.height);
        const QString stuID = text(entry, "stuID");
        forStudent(stuID, [&] {
            if (registerStuGallery(stuID, text(entry, "faceImg"), rect))
                registered.append(studentEntry(stuID));
        });
    }
    MessageSender::instance()->sendMessage(
        code(Event::Registered), QVariantMap{{QStringLiteral("successList"), registered}}, requestID);
    return reply(Error::None);
}

bool AIServiceController::registerStuGallery(const QString &stuID, const QString &faceImg, cv::Rect rect)
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

QVariantMap AIServiceController::deleteGallery(const QVariantMap &params)
{
    const QString stuID = text(params, "stuID");
    if (stuID.isEmpty()) {
        qWarning("[deleteGallery] param failed, studentID empty");
        return reply(Error::BadParameters);
    }
    const int faceID = DataManager::instance()->getFaceID(stuID);
    if (faceID < 0) {
        qWarning().noquote().nospace() << "[deleteGallery] failed,stuID: " << stuID << " not found";
        return reply(Error::NoStudent);
    }
    if (!removeFace(faceID)) {
        qWarning().noquote().nospace() << "[deleteGallery] failed,faceID delete error,student: " << stuID;
        return reply(Error::Failed, "delete galleries: detect failed");
    }
    qInfo().noquote().nospace() << "[deleteGallery] stuID: " << stuID << " faceID: " << faceID;
    if (!DataManager::instance()->removeStudent(stuID)) {
        qWarning().noquote().nospace() << "[deleteGallery] remove failed,student: " << stuID;
        return reply(Error::NoStudent);
    }
    ExternalGallery::instance()->enableFaceFeature(stuID);
    if (!m_recovering)
        QSqliteStorage::instance()->deleteStudent(stuID);
    return reply(Error::None);
}

QVariantMap AIServiceController::bestGallery(const QString &requestID)
{
    QVariantList galleries;
    for (const StudentInfo &student : DataManager::instance()->getAllStudents()) {
        const QString face = ai_image::convertMat2Base64(student.bestGallery.clone());
        const double score = student.galleryScore * 100;
        galleries.append(QVariantMap{{QStringLiteral("stuID"), student.stuID},
                                     {QStringLiteral("bestFaceImg"), face},
                                     {QStringLiteral("score"), score}});
        qDebug().noquote().nospace() << "[bestGallery] stuID: " << student.stuID << " score: " << score
                                     << " bestFaceImg: " << face;
    }
    MessageSender::instance()->sendMessage(
        code(Event::BestPictures), QVariantMap{{QStringLiteral("bestGalleries"), galleries}}, requestID);
    return reply(Error::None);
}

void AIServiceController::deleteAllGalleries()
{
    qInfo("[deleteAllGalleries] begin");
    const cv::Mat none;
    if (!ModelManager::instance().createFaceIDModel(none, FaceIDModel::Clear, -1)->detect())
        qWarning("[deleteAllGalleries] faceid clear failed");
    DataManager::instance()->clear();
    qWarning("[deleteAllGalleries] end");
}

QVariantMap AIServiceController::clearHistoryGalleries(const QString &)
{
    ExternalGallery::instance()->clear();
    if (!m_recovering)
        QSqliteStorage::instance()->clearHistoryGalleries();
    return reply(Error::None);
}

QVariantMap AIServiceController::updateStudentID(const QVariantMap &params)
{
    const QString newID = text(params, "newStuID");
    const QString oldID = text(params, "oldStuID");
    if (newID.isEmpty() || oldID.isEmpty()) {
        qWarning().noquote().nospace()
            << "[updateStudentID] param failed, old stuID: " << oldID << " new stuID: " << newID;
        return reply(Error::BadParameters);
    }
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
        return reply(Error::NoStudent);
    }
    qInfo().noquote().nospace() << "[updateStudentID] success,old stuID: " << oldID
                                << " new stuID: " << newID;
    if (unchanged)
        return reply(Error::None);
    if (!m_recovering) {
        QSqliteStorage::instance()->deleteStudent(newID);
        QSqliteStorage::instance()->updateStudentName(oldID, newID);
    }
    ExternalGallery::instance()->enableFaceFeature(oldID);
    ExternalGallery::instance()->disableFaceFeature(newID);
    return reply(Error::None);
}

QVariantMap AIServiceController::updateStudentGallery(const QVariantMap &params)
{
    const QString stuID = text(params, "oldStuID");
    const QString faceImg = text(params, "faceImageBase64");
    if (stuID.isEmpty() || faceImg.isEmpty()) {
        qWarning().noquote().nospace()
            << "[updateStudentGallery] param failed,old stuID: " << stuID << " faceImg: " << faceImg;
        return reply(Error::BadParameters);
    }
    // A delete that fails, say of a student whom nobody knows, doesn't stop the registration.
    deleteGallery(studentEntry(stuID));
    if (!registerStuGallery(stuID, faceImg, rect_util::fromMap(params)))
        return reply(Error::BadParameters);
    qDebug().noquote().nospace() << "[updateStudentGallery] old stuID: " << stuID << " faceImg: " << faceImg;
    return reply(Error::None);
}
