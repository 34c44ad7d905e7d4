// How the controller gets its students back from the store.

#include "aiservicecontroller.h"

#include "datamanager.h"
#include "imageutil.h"
#include "modelmanager.h"
#include "qstorage.h"

#include <QDebug>

namespace {

/// Sets in the record what the store keeps of a student beyond his registration.
void restore(StudentInfo &student, const QVariantMap &row)
{
    const auto number = [&](const char *key) { return row.value(QLatin1String(key)).toInt(); };
    student.faceRect = cv::Rect(number("faceX"), number("faceY"), number("faceW"), number("faceH"));
    student.bodyRect = cv::Rect(number("bodyX"), number("bodyY"), number("bodyW"), number("bodyH"));
    student.galleryScore = row.value(QStringLiteral("galleryScore")).toDouble();

    // The saved picture only shapes the feature; the record's own picture stays the registered one.
    const cv::Mat best = ai_image::convertBase642Mat(row.value(QStringLiteral("bestGallery")).toString());
    if (best.empty())
        return;
    const auto model = ModelManager::instance().createFaceIDModel(best, FaceIDModel::Extract, -1);
    if (model->detect())
        student.meanFeature = model->m_feature;
}

} // namespace

void AIServiceController::recovery()
{
    m_recovering = true;
    try {
        recoverStudents();
    } catch (...) {
        m_recovering = false; // else nothing would be stored any more
        throw;
    }
    m_recovering = false;
}

void AIServiceController::recoverStudents()
{
    m_refusedFaces = 0;
    const QVariantMap histories = QSqliteStorage::instance()->getHistoryGalleries();
    if (!histories.isEmpty()) {
        qInfo().nospace() << "history galleries size: " << histories.size();
        setExternalGallery(histories, QString());
    }

    const QVariantMap galleries = QSqliteStorage::instance()->fetchStudentInfo();
    const QVariantList students = galleries.value(QStringLiteral("galleries")).toList();
    qInfo().nospace() << "galleries size: " << galleries.size();
    if (isCameraConnected())
        registerGallery(galleries, QString());
    else
        qWarning("[registerGallery] controller is invalid");

    const QVariantList rows = QSqliteStorage::instance()->getStudentInfo();
    qInfo().nospace() << "stuList size: " << rows.size();
    for (const QVariant &value : rows) {
        const QVariantMap row = value.toMap();
        const QString stuID = row.value(QStringLiteral("stuID")).toString();
        forStudent(stuID, [&] {
            StudentInfo student = DataManager::instance()->getStudentInfo(stuID);
            if (student.stuID.isEmpty())
                return;
            restore(student, row);
            DataManager::instance()->updateStudent(student);
            const cv::Rect &face = student.faceRect;
            const cv::Rect &body = student.bodyRect;
            qInfo().noquote().nospace()
                << "recover stuInfo id: " << student.stuID << " face x: " << face.x << " y: " << face.y
                << " w: " << face.width << " h: " << face.height << " body x: " << body.x << " y: " << body.y
                << " w: " << body.width << " h: " << body.height;
        });
    }
    qInfo().nospace() << "[recover] students read: " << students.size()
                      << " brought back: " << DataManager::instance()->count()
                      << " refused by the recogniser: " << m_refusedFaces;
}
