#include "faceemotionmodel.h"

#include "aiconfig.h"

FaceEmotionModel::FaceEmotionModel(const cv::Mat &image,
                                   std::shared_ptr<mirovane::FaceEmotionClassify> recogniser)
    : BaseModel(image, Recogniser::Emotion, recogniser != nullptr), m_recogniser(std::move(recogniser))
{
}

void FaceEmotionModel::call()
{
    m_recogniser->classify(*m_image, &m_label, &m_score, false);
}

bool FaceEmotionModel::isSmile() const
{
    return m_label == 1 && m_score >= AIConfig::instance().smileThre;
}
