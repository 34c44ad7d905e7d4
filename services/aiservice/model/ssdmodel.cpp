#include "ssdmodel.h"

SSDModel::SSDModel(const cv::Mat &image, std::shared_ptr<mirovane::BodyDetectionSSD> recogniser)
    : BaseModel(image, Recogniser::Bodies, recogniser != nullptr), m_recogniser(std::move(recogniser))
{
}

void SSDModel::call()
{
    m_recogniser->detect(*m_image, m_rects, m_scores, false);
}

void SSDModel::discard()
{
    m_rects.clear();
}

void SSDModel::conclude()
{
    bound(m_rects);
}
