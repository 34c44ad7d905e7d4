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

    /// Whether the face of the first rectangle wears glasses. False where nothing is known of it.
    bool wearsGlasses() const;

    std::shared_ptr<mirovane::FaceAttrDetection> m_recogniser;
    std::vector<cv::Rect> m_rects;                   ///< input
    std::vector<mirovane::FaceAttrResult> m_results; ///< one for each rectangle

protected:
    void call() override;
    bool fits() const override;
};
