#include "faulty.h"

#include <mirovane/bodydetectionssd.h>

namespace {

struct FaultyBodies : mirovane::BodyDetectionSSD
{
    int detect(const cv::Mat &, std::vector<cv::Rect> &bodies, std::vector<float> &scores, bool) override
    {
        faulty::findPeople(faulty::beginCall(bodyDetection), faulty::bodyOf, bodies, scores);
        return 0;
    }
};

} // namespace

mirovane::BodyDetectionSSD *mirovane::BodyDetectionSSD::create(const std::string &, const std::string &)
{
    return faulty::create<FaultyBodies>(bodyDetection);
}
