#pragma once

#include "basemodel.h"
#include "mirovane/bodydetectionssd.h"

/// Finds the bodies of a picture. See BaseModel.
class SSDModel : public BaseModel
{
    Q_OBJECT

public:
    SSDModel(const cv::Mat &image, std::shared_ptr<mirovane::BodyDetectionSSD> recogniser);

    std::shared_ptr<mirovane::BodyDetectionSSD> m_recogniser;
    std::vector<cv::Rect> m_rects;
    std::vector<float> m_scores;

protected:
    void call() override;
    void discard() override;
    void conclude() override;

signals:
    void finished(bool ret, SSDModel *resultModel);
};
