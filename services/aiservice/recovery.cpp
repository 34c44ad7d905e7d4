// How a class comes back from the store.

#include "aiservicecontroller.h"
#include "datamanager.h"
#include "imageutil.h"
#include "modelmanager.h"
#include "qstorage.h"

#include <QDebug>

namespace {

constexpr int progressInterval = 1000; // ms

/// Sets in the record what the store keeps of a student beyond his registration.
void restoreRecord(StudentInfo &student, const QVariantMap &row)
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

int countOf(const QVariantMap &galleries)
{
    return galleries.value(QStringLiteral("galleries")).toList().size();
}

} // namespace

Classroom::Recovery::Recovery(Classroom &classroom) : m_classroom(classroom)
{
    m_classroom.m_recovering = true;
    m_classroom.m_refusedFaces = 0;
    m_classroom.m_lastProgress.start();
}

// Whatever ended the recovery: else nothing would be stored any more.
Classroom::Recovery::~Recovery()
{
    m_classroom.m_recovering = false;
}

void Classroom::Recovery::begin(const char *what, int count)
{
    m_classroom.m_progressOf = what;
    m_classroom.m_stepsDone = 0;
    m_classroom.m_stepsExpected = count;
}

void Classroom::tellProgress()
{
    if (m_lastProgress.hasExpired(progressInterval)) {
        qInfo("[recover] %s: %d of %d", m_progressOf, m_stepsDone, m_stepsExpected);
        m_lastProgress.start();
    }
    ++m_stepsDone;
}

bool Classroom::forStudent(const QString &stuID, const std::function<bool()> &step)
{
    if (!m_recovering)
        return step();
    tellProgress();
    try {
        return step();
    } catch (const std::exception &exception) {
        qCritical().noquote().nospace() << "[recover] student " << stuID << " is lost: " << exception.what();
    } catch (...) {
        qCritical().noquote().nospace() << "[recover] student " << stuID << " is lost: unknown exception";
    }
    return false;
}

void Classroom::restore(const QVariantMap &row)
{
    const QString stuID = row.value(QStringLiteral("stuID")).toString();
    forStudent(stuID, [&] {
        StudentInfo student = DataManager::instance()->getStudentInfo(stuID);
        if (student.stuID.isEmpty())
            return false;
        restoreRecord(student, row);
        DataManager::instance()->updateStudent(student);
        const cv::Rect &face = student.faceRect;
        const cv::Rect &body = student.bodyRect;
        qInfo().noquote().nospace() << "recover stuInfo id: " << student.stuID << " face x: " << face.x
                                    << " y: " << face.y << " w: " << face.width << " h: " << face.height
                                    << " body x: " << body.x << " y: " << body.y << " w: " << body.width
                                    << " h: " << body.height;
        return true;
    });
}

void AIServiceController::recovery()
{
    Classroom::Recovery recovery(m_classroom);
    const QVariantMap histories = QSqliteStorage::instance()->getHistoryGalleries();
    if (!histories.isEmpty()) {
        qInfo().nospace() << "history galleries size: " << histories.size();
        recovery.begin("external faces", countOf(histories));
        setExternalGallery(histories, QString());
    }

    const QVariantMap galleries = QSqliteStorage::instance()->fetchStudentInfo();
    qInfo().nospace() << "galleries size: " << galleries.size();
    recovery.begin("students", countOf(galleries));
    if (isCameraConnected())
        registerGallery(galleries, QString());
    else
        qWarning("[registerGallery] controller is invalid");

    const QVariantList rows = QSqliteStorage::instance()->getStudentInfo();
    qInfo().nospace() << "stuList size: " << rows.size();
    recovery.begin("places of students", rows.size());
    for (const QVariant &row : rows)
        m_classroom.restore(row.toMap());
    qInfo().nospace() << "[recover] students read: " << countOf(galleries)
                      << " brought back: " << DataManager::instance()->count()
                      << " refused by the recogniser: " << recovery.refusedFaces();
}
