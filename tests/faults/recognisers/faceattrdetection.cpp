#include "faulty.h"

#include <mirovane/faceattrdetection.h>

namespace {

struct FaultyAttributes : mirovane::FaceAttrDetection
{
    int detect(const cv::Mat &, const std::vector<cv::Rect> &faces,
               std::vector<mirovane::FaceAttrResult> &results, bool) override
    {
        const Behaviour behaviour = faulty::beginCall(attributes);
        results.resize(behaviour == Behaviour::wrongLengths ? 0 : faces.size());
        for (mirovane::FaceAttrResult &result : results) {
            if (behaviour != Behaviour::garbage)
                result.labels = {1};
        }
        return 0;
    }
};

} // namespace

mirovane::FaceAttrDetection *mirovane::FaceAttrDetection::create(const std::string &, const std::string &)
{
    return faulty::create<FaultyAttributes>(attributes);
}
