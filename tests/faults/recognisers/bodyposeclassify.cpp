#include "faulty.h"

#include <mirovane/bodyposeclassify.h>

namespace {

struct FaultyPoses : mirovane::BodyPoseClassify
{
    void reserved1() override {}
    void reserved2() override {}
    int classify(const cv::Mat &, const std::vector<cv::Rect> &bodies, std::vector<int> &labels,
                 std::vector<float> &scores, bool) override
    {
        faulty::classifyAll(faulty::beginCall(bodyPose), bodies.size(), labels, scores);
        return 0;
    }
};

} // namespace

mirovane::BodyPoseClassify *mirovane::BodyPoseClassify::create(const std::string &, const std::string &)
{
    return faulty::create<FaultyPoses>(bodyPose);
}
