#include "gallerystrategy.h"

#include "aiconfig.h"
#include "matching.h"
#include "modelmanager.h"

namespace {

/// A face this far or farther (squared, in pixels) from a record belongs to another place.
constexpr int nearSquared = 16384;

std::vector<GalleryItem> galleryItems;

} // namespace

GalleryStrategy::GalleryStrategy() : BaseStrategy(QStringLiteral("GalleryStrategy"), QString())
{
    m_frameInterval = AIConfig::instance().galleryFrameInterval;
    galleryItems.clear();
}

const std::vector<GalleryItem> &GalleryStrategy::items()
{
    return galleryItems;
}

void GalleryStrategy::handleFrame(const cv::Mat &frame)
{
    const AIConfig &config = AIConfig::instance();
    const auto detector = ModelManager::instance().createMTCNNModel(frame, true);
    detector->detect();
    detector->expandFaces();
    const std::vector<cv::Point> centres = detector->faceCentres();
    const std::vector<cv::Mat> crops = detector->cropHeads(config.identifyEyeDistance);
    const std::vector<cv::Mat> shown = detector->cropHeads(config.showEyeDistance);
    const std::vector<int> offsets = detector->landmarkOffsets();

    std::vector<cv::Point> places;
    places.reserve(galleryItems.size());
    for (const GalleryItem &item : galleryItems)
        places.push_back(item.centre);
    const auto partners = matching::nearestPairs(centres, places, nearSquared);

    for (size_t i = 0; i < centres.size(); ++i) {
        const auto partner = partners.find(i);
        if (partner == partners.end()) {
            galleryItems.push_back({static_cast<int>(galleryItems.size()), detector->m_rects[i],
                                    matching::cropAt(crops, i), matching::cropAt(shown, i), centres[i],
                                    offsets[i]});
            continue;
        }
        GalleryItem &item = galleryItems[partner->second];
        item.centre = centres[i];
        if (item.offset >= offsets[i])
            continue;
        item.faceRect = detector->m_rects[i];
        item.faceImg = matching::cropAt(crops, i);
        item.showImg = matching::cropAt(shown, i);
        item.offset = offsets[i];
    }
}
