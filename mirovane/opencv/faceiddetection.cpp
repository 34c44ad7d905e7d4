#include "facedescriptor.h"

#include <algorithm>
#include <map>
#include <memory>
#include <mirovane/faceiddetection.h>

namespace mirovane {

namespace {

/// The error of an id that can't be enrolled; those of a picture are FaceDescriptor's.
constexpr int wrongId = -4;

/// Ids index a list of scores, so they stay small.
constexpr int mostIds = 100000;

/// A score from here on counts as near.
constexpr double nearScore = 0.35;

/// The score of a cosine: itself up to 0.43, then steeper, so that pictures of one person reach 0.8 at a
/// cosine that strangers don't. Below 0 nothing is alike.
double scoreOf(double cosine)
{
    constexpr double knee = 0.43;
    constexpr double sureCosine = 0.55;
    constexpr double sureScore = 0.8;
    if (cosine <= knee)
        return std::max(cosine, 0.0);
    if (cosine <= sureCosine)
        return knee + (cosine - knee) * (sureScore - knee) / (sureCosine - knee);
    return std::min(1.0, sureScore + (cosine - sureCosine) * (1 - sureScore) / (1 - sureCosine));
}

class GaborFaceID : public FaceIDDetection
{
public:
    bool load(const std::string &model) { return m_descriptor.load(model); }

    int registerFace(const cv::Mat &face, int id) override
    {
        if (id < -1 || id >= mostIds)
            return wrongId;
        cv::Mat feature;
        if (const int error = m_descriptor.describe(face, feature))
            return error;
        if (id == -1)
            id = freeId();
        if (id >= mostIds)
            return wrongId;
        m_gallery[id] = feature;
        m_nextId = std::max(m_nextId, id + 1);
        return id;
    }

    int identify(const cv::Mat &face, int *id, bool option) override
    {
        return identifyAll(face, id, nullptr, nullptr, nullptr, option);
    }

    void reserved1() override {}

    int extractFeature(const cv::Mat &face, cv::Mat *feature, bool) override
    {
        cv::Mat described;
        if (const int error = m_descriptor.describe(face, described))
            return error;
        if (feature)
            *feature = described;
        return 0;
    }

    int identifyAll(const cv::Mat &face, int *id, cv::Mat *feature, std::vector<int> *candidates,
                    std::vector<double> *scores, bool) override
    {
        if (id)
            *id = -1;
        cv::Mat described;
        if (const int error = m_descriptor.describe(face, described))
            return error;
        if (feature)
            *feature = described;
        if (candidates)
            candidates->clear();
        if (scores)
            scores->assign(m_gallery.empty() ? 0 : size_t(m_gallery.rbegin()->first) + 1, 0.0);

        double best = nearScore;
        for (const auto &[entry, known] : m_gallery) {
            const double score = scoreOf(described.dot(known));
            if (scores)
                (*scores)[size_t(entry)] = score;
            if (score < nearScore)
                continue;
            if (candidates)
                candidates->push_back(entry);
            if (id && score >= best) {
                best = score;
                *id = entry;
            }
        }
        return 0;
    }

    void reserved2() override {}

    /// An id that isn't there counts as removed, so that whoever kept it can forget it too.
    int removeFace(int id) override
    {
        m_gallery.erase(id);
        return 0;
    }

    void clearFaces() override { m_gallery.clear(); }

private:
    /// Counts up, so that an id that was removed a moment ago doesn't mean somebody else at once; when
    /// the numbers are used up, the smallest free one.
    int freeId() const
    {
        if (m_nextId < mostIds)
            return m_nextId;
        int id = 0;
        for (const auto &entry : m_gallery) {
            if (entry.first != id)
                break;
            ++id;
        }
        return id;
    }

    open::FaceDescriptor m_descriptor;
    std::map<int, cv::Mat> m_gallery; ///< features by id
    int m_nextId = 0;
};

} // namespace

FaceIDDetection *FaceIDDetection::create(const std::string &model, const std::string &)
{
    auto faces = std::make_unique<GaborFaceID>();
    if (!faces->load(model))
        return nullptr;
    return faces.release();
}

} // namespace mirovane
