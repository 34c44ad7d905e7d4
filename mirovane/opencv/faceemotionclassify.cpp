#include "mirovane/faceemotionclassify.h"

#include "common.h"
#include "learnednet.h"

#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>

namespace {

using namespace mirovane::open;

// Faces below this side have no mouth to judge.
constexpr int smallestSide = 24;

constexpr int emotionSide = 64;
constexpr int expressionSide = 112;
// Places of "happy" among the classes.
constexpr int happyEmotion = 3;
constexpr int happyExpression = 1;

/// The expression net was trained on close cuts; the service's have some padding.
constexpr double closeCut = 1 / 1.15;

/// The part of a face crop about its middle, in a square that is black besides it.
cv::Mat closeSquare(const cv::Mat &crop)
{
    const cv::Rect inner = grown({{}, crop.size()}, closeCut, crop.size());
    const cv::Point2f middle(cv::Point2f(inner.tl() + inner.br()) / 2);
    return squareCut(crop(inner), middle - cv::Point2f(inner.tl()),
                     float(std::max(inner.width, inner.height)), expressionSide);
}

/// Tells smiles: what two nets agree on that were trained on different pictures.
class LearnedEmotion : public mirovane::FaceEmotionClassify
{
public:
    LearnedEmotion(std::shared_ptr<LearnedNet> emotion, std::shared_ptr<LearnedNet> expression)
        : m_emotion(std::move(emotion)), m_expression(std::move(expression))
    {
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
        const cv::Mat crop = toColour(face);
        if (crop.empty() || std::min(crop.cols, crop.rows) < smallestSide)
            return -1;

        float happy[2] = {};
        cv::parallel_for_(cv::Range(0, 2), [&](const cv::Range &range) {
            for (int i = range.start; i < range.end; ++i)
                happy[i] = i == 0 ? emotionOf(crop) : expressionOf(crop);
        });
        const float smiling = std::min(happy[0], happy[1]);
        *label = smiling >= 0.5F ? 1 : 0;
        *score = *label == 1 ? smiling : 1 - smiling;
        return 0;
    }

private:
    float emotionOf(const cv::Mat &crop) const
    {
        cv::Mat grey;
        cv::resize(toGrey(crop), grey, {emotionSide, emotionSide}, 0, 0,
                   crop.cols > emotionSide ? cv::INTER_AREA : cv::INTER_LINEAR);
        return m_emotion->run(inputOf({grey}, evenScale), {"classes"}).front().ptr<float>()[happyEmotion];
    }

    float expressionOf(const cv::Mat &crop) const
    {
        const auto blobs = m_expression->run(inputOf({closeSquare(crop)}, faceScale), {"classes"});
        return blobs.front().ptr<float>()[happyExpression];
    }

    std::shared_ptr<LearnedNet> m_emotion;
    std::shared_ptr<LearnedNet> m_expression;
};

} // namespace

mirovane::FaceEmotionClassify *mirovane::FaceEmotionClassify::create(const std::string &model,
                                                                     const std::string &config)
{
    auto emotion = LearnedNet::open(model);
    auto expression = LearnedNet::find(config, "expression");
    if (!emotion || !emotion->gives({"classes"}) || !expression || !expression->gives({"classes"}))
        return nullptr;
    return new LearnedEmotion(std::move(emotion), std::move(expression));
}
