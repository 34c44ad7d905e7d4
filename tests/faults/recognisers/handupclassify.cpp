#include "faulty.h"

#include <mirovane/handupclassify.h>

namespace {

struct FaultyHands : mirovane::HandupClassify
{
    void reserved1() override {}
    void reserved2() override {}
    int classify(const cv::Mat &, const std::vector<cv::Rect> &rects, std::vector<int> &labels,
                 std::vector<float> &scores, bool) override
    {
        faulty::classifyAll(faulty::beginCall(handup), rects.size(), labels, scores);
        return 0;
    }
};

} // namespace

mirovane::HandupClassify *mirovane::HandupClassify::create(const std::string &, const std::string &)
{
    return faulty::create<FaultyHands>(handup);
}
