#include "mirovane/faceemotionclassify.h"

#include "cascade.h"
#include "facefinder.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <opencv2/imgproc.hpp>

namespace {

using namespace mirovane::open;

// Every face is judged at no more detail than this side, so that near and far faces compare.
constexpr int detailSide = 96;
constexpr int workingSide = 160;
// Faces below this side have no mouth to judge.
constexpr int smallestSide = 24;
// The part of the working face in which a mouth is looked for, and the sizes of a mouth.
const cv::Rect mouthPart(16, 88, 128, 72);
const cv::Size smallestMouth(44, 22);
const cv::Size biggestMouth(110, 60);
// The score at the threshold that the service comes with.
constexpr double scoreAtThreshold = 0.75;

/// The hits of the smile cascade at which a face of the side counts as smiling. A small face is blurred by
/// its enlargement and gives fewer of them.
double hitsOfSmile(int side)
{
    const double detail = (std::clamp(side, 48, detailSide) - 48) / double(detailSide - 48);
    return 56.0 + 26.0 * detail;
}

/// Between 0 and 1, scoreAtThreshold for a ratio of 1; steep, as smiling faces give about twice the hits.
double scoreOfRatio(double ratio)
{
    const double offset = std::log(scoreAtThreshold / (1 - scoreAtThreshold));
    return 1 / (1 + std::exp(-(offset + 6.0 * (ratio - 1))));
}

int median(std::vector<int> values)
{
    const auto middle = values.begin() + std::ptrdiff_t(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// The hits whose centres lie close to the middle of them all. Those of a smile gather in the middle of the
/// mouth; chins, beards and shadows scatter theirs.
int hitsInOnePlace(const std::vector<cv::Rect> &hits)
{
    constexpr int nearX = 7;
    constexpr int nearY = 6;
    if (hits.empty())
        return 0;
    std::vector<int> xs;
    std::vector<int> ys;
    for (const cv::Rect &hit : hits) {
        xs.push_back(hit.x + hit.width / 2);
        ys.push_back(hit.y + hit.height / 2);
    }
    const int x = median(xs);
    const int y = median(ys);
    int count = 0;
    for (std::size_t i = 0; i < hits.size(); ++i)
        count += std::abs(xs[i] - x) <= nearX && std::abs(ys[i] - y) <= nearY ? 1 : 0;
    return count;
}

/**
 * Tells smiles by the hits of the smile cascade on the lower half of the face.
 *
 * A single hit of the cascade means little: it answers on every mouth. The number of hits at neighbouring
 * places and sizes does: a smile draws about twice those of a mouth at rest. It is averaged over some
 * slightly moved crops, because the number jumps with the place of the crop.
 */
class OpenFaceEmotion : public mirovane::FaceEmotionClassify
{
public:
    bool load(const std::string &model)
    {
        cv::FileStorage file;
        return openModel(file, model, "FaceEmotionClassify") &&
               m_faces.load(besideModel(model, file["face"].string())) &&
               loadCascade(m_smile, besideModel(model, file["smile"].string()));
    }

    void reserved1() override {}
    void reserved2() override {}
    void reserved3() override {}

    int classify(const cv::Mat &face, int *label, float *score, bool) override
    {
        if (!label || !score)
            return -1;
        *label = 0;
        *score = 0;
        const cv::Mat grey = toGrey(face);
        if (grey.empty() || std::min(grey.cols, grey.rows) < smallestSide)
            return -1;

        const cv::Mat mouthFace = settled(grey);
        const int side = std::min({mouthFace.cols, mouthFace.rows, detailSide});
        const double smiling = scoreOfRatio(meanHits(workingFace(mouthFace, side)) / hitsOfSmile(side));
        *label = smiling >= 0.5 ? 1 : 0;
        *score = float(*label == 1 ? smiling : 1 - smiling);
        return 0;
    }

private:
    /// The face within the crop, whose edges are drawn out since the cascade needs room around a face.
    cv::Mat settled(const cv::Mat &crop) const
    {
        const int edge = std::min(crop.cols, crop.rows) / 5;
        cv::Mat roomy;
        cv::copyMakeBorder(crop, roomy, edge, edge, edge, edge, cv::BORDER_REPLICATE | cv::BORDER_ISOLATED);
        return roomy(settledFace(m_faces, roomy, {edge, edge, crop.cols, crop.rows}));
    }

    static cv::Mat workingFace(const cv::Mat &grey, int side)
    {
        cv::Mat reduced;
        cv::resize(grey, reduced, {side, side}, 0, 0, cv::INTER_AREA);
        cv::Mat face;
        cv::resize(reduced, face, {workingSide, workingSide}, 0, 0, cv::INTER_LINEAR);
        cv::equalizeHist(face, face);
        return face;
    }

    double meanHits(const cv::Mat &face)
    {
        // x, y and side of the crops.
        static const int crops[][3] = {{0, 0, 160}, {6, 3, 148}, {3, 8, 148}, {9, 8, 142}, {6, 6, 154}};
        double sum = 0;
        for (const auto &crop : crops) {
            cv::Mat part;
            cv::resize(face(clipped({crop[0], crop[1], crop[2], crop[2]}, face.size())), part, face.size());
            std::vector<cv::Rect> hits;
            m_smile.detectMultiScale(part(mouthPart), hits, 1.05, 0, 0, smallestMouth, biggestMouth);
            sum += hitsInOnePlace(hits);
        }
        return sum / double(std::size(crops));
    }

    SharedCascade m_faces;
    cv::CascadeClassifier m_smile;
};

} // namespace

mirovane::FaceEmotionClassify *mirovane::FaceEmotionClassify::create(const std::string &model,
                                                                     const std::string &)
{
    auto emotion = std::make_unique<OpenFaceEmotion>();
    return emotion->load(model) ? emotion.release() : nullptr;
}
