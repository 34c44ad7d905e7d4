// The commands by which the client enrols, replaces, renames and deletes students: they read requests and
// make replies, the rest is the Classroom's.

#include "aiconfig.h"
#include "aiservicecontroller.h"
#include "basestrategy.h"
#include "commandreply.h"
#include "datamanager.h"
#include "imageutil.h"
#include "messageSender.h"
#include "rectutil.h"

#include <QDebug>

using ai::Error;
using ai::Event;
using command::reply;
using Started = StrategyRegistry::Started;

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

} // namespace

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
        if (!m_classroom.addExternalFace(stuID, text(entry, "faceImg")))
            failed.append(studentEntry(stuID));
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
        m_strategies.start(QStringLiteral("GalleryStrategyNew"), requestID, [&](BaseStrategy &strategy) {
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
        if (m_classroom.enrol(stuID, text(entry, "faceImg"), rect))
            registered.append(studentEntry(stuID));
    }
    MessageSender::instance()->sendMessage(
        code(Event::Registered), QVariantMap{{QStringLiteral("successList"), registered}}, requestID);
    return reply(Error::None);
}

bool AIServiceController::registerStuGallery(const QString &stuID, const QString &faceImg, cv::Rect rect)
{
    return m_classroom.enrol(stuID, faceImg, rect);
}

QVariantMap AIServiceController::deleteGallery(const QVariantMap &params)
{
    const QString stuID = text(params, "stuID");
    if (stuID.isEmpty()) {
        qWarning("[deleteGallery] param failed, studentID empty");
        return reply(Error::BadParameters);
    }
    const Error error = m_classroom.drop(stuID);
    return error == Error::Failed ? reply(error, "delete galleries: detect failed") : reply(error);
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
    m_classroom.clearStudents();
}

QVariantMap AIServiceController::clearHistoryGalleries(const QString &)
{
    m_classroom.clearExternalFaces();
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
    return reply(m_classroom.rename(oldID, newID));
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
    if (!m_classroom.replace(stuID, faceImg, rect_util::fromMap(params)))
        return reply(Error::BadParameters);
    qDebug().noquote().nospace() << "[updateStudentGallery] old stuID: " << stuID << " faceImg: " << faceImg;
    return reply(Error::None);
}
