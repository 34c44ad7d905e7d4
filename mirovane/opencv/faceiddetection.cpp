#include "faceembedding.h"

#include <mirovane/faceiddetection.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <memory>

namespace mirovane {

namespace {

/// The error of an id that can't be enrolled; those of a picture are FaceEmbedding's.
constexpr int wrongId = -4;

/// How far beyond the highest id so far a caller's own may lie: the list of scores is indexed by the id.
constexpr int furthestId = 1000;

/// A score from here on counts as near.
constexpr double nearScore = 0.35;

/// The score of a distance, linear between these.
double scoreOf(double distance)
{
    struct Knot
    {
        double distance;
        double score;
    };
    constexpr Knot knots[] = {{0, 1}, {0.52, 0.8}, {0.60, 0.43}, {0.62, nearScore}, {0.9, 0}};
    for (size_t i = 1; i < std::size(knots); ++i) {
        const auto &from = knots[i - 1];
        const auto &to = knots[i];
        if (distance <= to.distance)
            return from.score +
                   (to.score - from.score) * (distance - from.distance) / (to.distance - from.distance);
    }
    return 0;
}

class LearnedFaceID : public FaceIDDetection
{
public:
    explicit LearnedFaceID(std::shared_ptr<open::LearnedNet> net) : m_embedding(std::move(net)) {}

    int registerFace(const cv::Mat &face, int id) override
    {
        if (id < -1 || id - furthestId >= m_nextId)
            return wrongId;
        open::FaceVector vector;
        if (const int error = m_embedding.describe(face, vector))
            return error;
        if (id == -1)
            id = m_nextId;
        m_gallery[id] = vector;
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
        open::FaceVector vector;
        if (const int error = m_embedding.describe(face, vector))
            return error;
        if (feature)
            *feature = open::featureOf(vector);
        return 0;
    }

    int identifyAll(const cv::Mat &face, int *id, cv::Mat *feature, std::vector<int> *candidates,
                    std::vector<double> *scores, bool) override
    {
        if (id)
            *id = -1;
        open::FaceVector vector;
        if (const int error = m_embedding.describe(face, vector))
            return error;
        if (feature)
            *feature = open::featureOf(vector);
        if (candidates)
            candidates->clear();
        if (scores)
            scores->assign(m_gallery.empty() ? 0 : size_t(m_gallery.rbegin()->first) + 1, 0.0);

        double best = nearScore;
        for (const auto &[entry, known] : m_gallery) {
            const double score = scoreOf(double(open::distance(vector, known)));
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
    open::FaceEmbedding m_embedding;
    std::map<int, open::FaceVector> m_gallery;
    int m_nextId = 0; ///< no id is given twice, so that a late answer can't mean somebody else
};

} // namespace

FaceIDDetection *FaceIDDetection::create(const std::string &model, const std::string &)
{
    auto net = open::LearnedNet::open(model);
    if (!net || !net->gives({"feature"}))
        return nullptr;
    return new LearnedFaceID(std::move(net));
}

} // namespace mirovane
