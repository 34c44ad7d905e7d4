#pragma once

#include "basemodel.h"

#include "mirovane/faceattrdetection.h"

/// Tells the attributes of the faces of a picture. See BaseModel.
class FaceAttrModel : public BaseModel
{
    Q_OBJECT

public:
    FaceAttrModel(const cv::Mat &image, std::shared_ptr<mirovane::FaceAttrDetection> recogniser,
                  const std::vector<cv::Rect> &faces);

    bool detect() override;
    void emitFinished(bool ret) override;

    std::shared_ptr<mirovane::FaceAttrDetection> m_recogniser;
    std::vector<cv::Rect> m_rects;                   ///< input
    std::vector<mirovane::FaceAttrResult> m_results; ///< one for each rectangle
};
