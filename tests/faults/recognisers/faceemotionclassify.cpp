#include "faulty.h"

#include <mirovane/faceemotionclassify.h>

namespace {

struct FaultyEmotions : mirovane::FaceEmotionClassify
{
    void reserved1() override {}
    void reserved2() override {}
    void reserved3() override {}
    int classify(const cv::Mat &, int *label, float *score, bool) override
    {
        std::vector<int> labels;
        std::vector<float> scores;
        faulty::classifyAll(faulty::beginCall(emotion), 2, labels, scores);
        *label = labels.front();
        *score = scores.front();
        return 0;
    }
};

} // namespace

mirovane::FaceEmotionClassify *mirovane::FaceEmotionClassify::create(const std::string &, const std::string &)
{
    return faulty::create<FaultyEmotions>(emotion);
}
