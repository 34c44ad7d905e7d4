#include "newgallerystrategy.h"

#include "aiconfig.h"
#include "datamanager.h"
#include "externalgallery.h"
#include "feature.h"
#include "imageutil.h"
#include "matching.h"
#include "messageSender.h"
#include "modelmanager.h"
#include "protocol.h"
#include "rectutil.h"

#include <QDebug>

namespace {

constexpr int identifyEyes = 40;
constexpr int showEyes = 25;

/// An entry of the event, without "isDetected", whose type differs between the modes.
QVariantMap galleryEntry(int gid, const QString &stuID, const cv::Mat &faceImg, const cv::Mat &showImg,
                         const cv::Rect &rect)
{
    QVariantMap map;
    map.insert(QStringLiteral("gid"), gid);
    map.insert(QStringLiteral("stuID"), stuID);
    map.insert(QStringLiteral("faceImg"), ai_image::convertMat2Base64(faceImg));
    map.insert(QStringLiteral("showImg"), ai_image::convertMat2Base64(showImg));
    rect_util::insert(map, rect);
    return map;
}

} // namespace

QString PersonGallery::toString() const
{
    // At once: a further step would fill places that the client's id has brought along.
    return QStringLiteral("gid: %1 stuID: %2 face%3 detected: %4")
        .arg(QString::number(gid), stuID, rect_util::text(faceRect), QString::number(detected ? 1 : 0));
}

NewGalleryStrategy::NewGalleryStrategy(const QString &requestID)
    : BaseStrategy(QStringLiteral("GalleryStrategy"), requestID)
{
    m_frameInterval = 30;
}

void NewGalleryStrategy::setParameters(const QVariantMap &params)
{
    QMutexLocker locker(&m_parameterLock);
    m_rect = rect_util::fromMap(params);
    m_stuID = params.value(QStringLiteral("stuID")).toString();
}

NewGalleryStrategy::Student NewGalleryStrategy::student()
{
    QMutexLocker locker(&m_parameterLock);
    return {m_rect, m_stuID};
}

void NewGalleryStrategy::handleFrame(const cv::Mat &frame)
{
    const Student wanted = student();
    const cv::Rect &face = wanted.face;
    if (face.x != 0 && face.y != 0 && face.width >= 1 && face.height >= 1)
        detectStudentGallery(frame, wanted);
    else
        detectClassGallery(frame);
}

void NewGalleryStrategy::detectClassGallery(const cv::Mat &frame)
{
    qInfo().nospace() << "[gallery] handleFrame begin,frameNum: " << frameCount();
    const auto detector = ModelManager::instance().createMTCNNModel(frame, true);
    detector->detect();
    if (detector->m_rects.empty()) {
        if (--m_retries > 0)
            return;
        qWarning("[Gallery] can't detect face");
        sendGalleries(frame, {});
        return; // the frame budget has run out too and stops the strategy
    }

    detector->expandFaces();
    const std::vector<cv::Rect> faces = detector->m_rects;
    if (faces.empty())
        qWarning("[Gallery] detect empty");
    const std::vector<cv::Mat> crops = detector->cropHeads(identifyEyes);
    const std::vector<cv::Mat> shown = detector->cropHeads(showEyes);
    People people;
    people.reserve(faces.size());
    for (size_t i = 0; i < faces.size(); ++i) {
        const auto person = std::make_shared<PersonGallery>();
        person->gid = static_cast<int>(i);
        person->faceImg = matching::cropAt(crops, i);
        ai_image::beautifyFace(matching::cropAt(shown, i), person->showImg);
        person->faceRect = faces[i];
        people.push_back(person);
    }
    recognise(people, crops);

    QVariantList galleries;
    for (const auto &person : people) {
        qInfo().noquote().nospace() << "[Gallery] info: " << person->toString();
        QVariantMap map =
            galleryEntry(person->gid, person->stuID, person->faceImg, person->showImg, person->faceRect);
        map.insert(QStringLiteral("isDetected"), person->detected);
        galleries.append(map);
    }
    sendGalleries(frame, galleries);
    qInfo().nospace() << "[gallery] handleFrame end,size: " << people.size();
    stop();
}

void NewGalleryStrategy::recognise(const People &people, const std::vector<cv::Mat> &crops)
{
    const auto externals = ExternalGallery::instance()->getValidFaceFeatures();
    qInfo().nospace() << "[Gallery] external valid gallery size: " << externals.size();

    std::vector<std::vector<double>> enrolledRows;
    std::vector<int> enrolledFaces;
    std::vector<std::vector<double>> externalRows;
    for (size_t i = 0; i < crops.size(); ++i) {
        if (DataManager::instance()->count() != 0) {
            const auto model = ModelManager::instance().createFaceIDModel(crops[i], FaceIDModel::IdentifyAll);
            if (model->detect() && model->m_id >= 0) {
                enrolledRows.push_back(std::move(model->m_scores));
                enrolledFaces.push_back(static_cast<int>(i));
                qInfo().nospace() << "[Gallery] match faceid: " << model->m_id << " gid: " << i;
            }
        }
        if (!externals.isEmpty()) {
            const auto model = ModelManager::instance().createFaceIDModel(crops[i], FaceIDModel::Extract);
            if (model->detect()) {
                std::vector<double> row;
                row.reserve(externals.size());
                for (const auto &item : externals)
                    row.push_back(feature::similarity(item->feature, model->m_feature));
                externalRows.push_back(std::move(row));
            }
        }
    }

    // The row counts as the index of the face, whatever extraction has failed before it.
    const AIConfig &config = AIConfig::instance();
    for (const auto &[row, column] : matching::matchRows(externalRows, config.fetchGalleryThre)) {
        people[row]->stuID = externals[column]->stuID;
        qInfo().noquote().nospace() << "[Gallery] external match, stuID: " << people[row]->stuID;
    }

    if (enrolledRows.empty())
        return;
    matching::equaliseRows(enrolledRows);
    for (const auto &[row, column] : matching::matchRows(enrolledRows, config.detectGalleryThre)) {
        const int face = enrolledFaces[row];
        people[face]->detected = true;
        const QString stuID = DataManager::instance()->getStudentInfo(column).stuID;
        if (stuID.isEmpty())
            qInfo().nospace() << "[Gallery] match not found,faceid: " << face;
        else
            people[face]->stuID = stuID;
    }
}

void NewGalleryStrategy::detectStudentGallery(const cv::Mat &frame, const Student &student)
{
    const cv::Rect place = rect_util::bounded(student.face);
    const int margin = AIConfig::instance().studentRoiMargin;
    const int x = std::max(place.x - margin, 0);
    const int y = std::max(place.y - margin, 0);
    const int width = place.width + 2 * margin;
    const int height = place.height + 2 * margin;
    // Empty for a student whose place lies outside the frame: then there is no face.
    const cv::Mat region = frame(rect_util::clipped(cv::Rect(x, y, width, height), frame.size())).clone();
    const auto detector = ModelManager::instance().createMTCNNModel(region, true);
    if (!region.empty())
        detector->detect();
    if (detector->m_rects.empty()) {
        qWarning("[Gallery] can't detect face");
        sendGalleries(frame, {});
        return;
    }

    detector->expandFaces();
    const cv::Rect face = detector->m_rects.front() + cv::Point(x, y);
    QVariantMap map = galleryEntry(0, student.stuID, matching::cropAt(detector->cropHeads(identifyEyes), 0),
                                   matching::cropAt(detector->cropHeads(showEyes), 0), face);
    map.insert(QStringLiteral("isDetected"), 0);
    qInfo().noquote().nospace() << "[Gallery] student info: "
                                << " stuID: " << student.stuID << " face" << rect_util::text(face);
    sendGalleries(frame, {map});
}

void NewGalleryStrategy::sendGalleries(const cv::Mat &frame, const QVariantList &galleries)
{
    QVariantMap payload;
    payload.insert(QStringLiteral("image"), ai_image::convertMat2Base64(frame));
    payload.insert(QStringLiteral("galleries"), galleries);
    MessageSender::instance()->sendMessage(code(ai::Event::Faces), payload, m_requestID);
}
