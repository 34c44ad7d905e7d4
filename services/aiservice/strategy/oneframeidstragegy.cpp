#include "oneframeidstragegy.h"

#include "aiconfig.h"
#include "datamanager.h"
#include "matching.h"
#include "modelmanager.h"
#include "rectutil.h"

#include <QDebug>

#include <algorithm>
#include <cstdint>

namespace {

/// Least score at which a face is taken for a student here, whatever the settings say.
constexpr double sureMatch = 0.8;
/// A body this far or farther (squared, in pixels) from a student's last place isn't his.
constexpr int nearSquared = 10000;

} // namespace

OneFrameIdStragegy::OneFrameIdStragegy(const cv::Mat &frame, std::vector<cv::Rect> bodies)
    : m_image(&frame), m_bodies(std::move(bodies))
{
    DataManager::instance()->resetStatus();
}

void OneFrameIdStragegy::run(int frameNumber)
{
    m_frameNumber = frameNumber;
    matchingByFace();
    matchingByBodyRect();
    matchingByStoredFace();
}

std::map<int, cv::Rect> OneFrameIdStragegy::detectFace()
{
    std::map<int, cv::Rect> result;
    const auto detector = ModelManager::instance().createMTCNNModel(*m_image, true);
    if (!detector->detect()) {
        qCritical("mtcnn detect failed!!!");
        return result;
    }
    detector->expandFaces();
    const std::vector<cv::Rect> faces = detector->m_rects;
    const AIConfig &config = AIConfig::instance();
    const std::vector<cv::Mat> crops = detector->cropHeads(config.identifyEyeDistance);

    std::vector<std::vector<double>> rows; // in step: similarities, features, face indices
    std::vector<cv::Mat> features;
    std::vector<int> rowIndices;
    for (size_t i = 0; i < crops.size(); ++i) {
        if (faces[i].width < config.faceMinSize && faces[i].height < config.faceMinSize)
            continue;
        const auto model = ModelManager::instance().createFaceIDModel(crops[i], FaceIDModel::IdentifyAll);
        if (!model->detect()) {
            qWarning("[faceID] detect failed");
            continue;
        }
        if (model->m_id == -1)
            continue;
        rows.push_back(std::move(model->m_scores));
        features.push_back(model->m_feature.clone());
        rowIndices.push_back(static_cast<int>(i));
    }
    if (rows.empty())
        return result;

    matching::equaliseRows(rows);
    for (const auto &[row, id] : matching::matchRows(rows, sureMatch)) {
        const int face = rowIndices[row];
        const cv::Rect &rect = faces[face];
        DataManager::instance()->updateFaceRect(id, rect, features[row], crops[face]);
        result[id] = rect;
        qInfo().noquote().nospace() << "Frame: " << m_frameNumber << " match face id: " << id
                                    << rect_util::text(rect);
    }
    return result;
}

int OneFrameIdStragegy::bestOverlap(const cv::Rect &rect, const std::vector<cv::Rect> &candidates)
{
    const auto found = std::find_if(candidates.begin(), candidates.end(), [&rect](const cv::Rect &candidate) {
        return overlapRatio(rect, candidate) >= AIConfig::instance().overlapThreshold;
    });
    return found == candidates.end() ? -1 : static_cast<int>(found - candidates.begin());
}

double OneFrameIdStragegy::overlapRatio(const cv::Rect &a, const cv::Rect &b)
{
    const cv::Rect first = rect_util::bounded(a);
    const cv::Rect second = rect_util::bounded(b);
    const std::int64_t area = std::int64_t{first.width} * first.height;
    if (area == 0)
        return 0.0;
    const std::int64_t width =
        std::min(first.x + first.width, second.x + second.width) - std::max(first.x, second.x);
    const std::int64_t height =
        std::min(first.y + first.height, second.y + second.height) - std::max(first.y, second.y);
    const std::int64_t common = std::max<std::int64_t>(width, 0) * std::max<std::int64_t>(height, 0);
    // Integers on purpose: anything short of the whole is nothing.
    const std::int64_t ratio = common / area;
    return static_cast<double>(ratio);
}

std::map<size_t, size_t> OneFrameIdStragegy::nearestPairs(const std::vector<cv::Rect> &rects,
                                                          const std::vector<cv::Point> &points,
                                                          int maxSquaredDistance)
{
    std::vector<cv::Point> centres;
    centres.reserve(rects.size());
    for (const cv::Rect &rect : rects)
        centres.emplace_back(rect.x + rect.width / 2, rect.y + rect.height / 2);
    return matching::nearestPairs(centres, points, maxSquaredDistance);
}

void OneFrameIdStragegy::matchingByFace()
{
    for (const auto &[id, face] : detectFace()) {
        const int k = bestOverlap(face, m_bodies);
        if (k == -1)
            continue;
        DataManager::instance()->updateBodyRect(id, m_bodies[k], 1);
        m_bodies.erase(m_bodies.begin() + k);
        if (!m_bodyMats.empty()) {
            DataManager::instance()->updateBodyMat(id, m_bodyMats[k]);
            m_bodyMats.erase(m_bodyMats.begin() + k);
        }
    }
}

void OneFrameIdStragegy::matchingByBodyRect()
{
    const QVector<StudentInfo> students = DataManager::instance()->getUnfoundBodyStudents();
    std::vector<cv::Point> places;
    places.reserve(students.size());
    for (const StudentInfo &student : students)
        places.emplace_back(student.bodyCenterX, student.bodyCenterY);

    // The indices are those of the list before the first erase and aren't adjusted while elements go.
    for (const auto &[body, index] : nearestPairs(m_bodies, places, nearSquared)) {
        if (body >= m_bodies.size())
            continue;
        const cv::Rect rect = m_bodies[body];
        m_bodies.erase(m_bodies.begin() + static_cast<std::ptrdiff_t>(body));
        const int id = students[static_cast<int>(index)].faceID;
        DataManager::instance()->updateBodyRect(id, rect, 2);
        qInfo().noquote().nospace() << "Frame: " << m_frameNumber << " match by body, id: " << id
                                    << rect_util::text(rect);
    }
}

void OneFrameIdStragegy::matchingByStoredFace()
{
    for (const StudentInfo &student : DataManager::instance()->getNoFaceIDStudents()) {
        const int k = bestOverlap(student.faceRect, m_bodies);
        if (k == -1)
            continue;
        DataManager::instance()->updateBodyRect(student.faceID, m_bodies[k], 3);
        m_bodies.erase(m_bodies.begin() + k);
    }
}
