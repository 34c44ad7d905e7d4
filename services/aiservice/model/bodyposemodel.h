#pragma once

#include "basemodel.h"
#include "mirovane/bodyposeclassify.h"

/// Classifies the pose of bodies and sums the concentration value over them. See BaseModel.
class BodyPoseModel : public BaseModel
{
    Q_OBJECT

public:
    BodyPoseModel(const cv::Mat &image, std::shared_ptr<mirovane::BodyPoseClassify> recogniser,
                  const std::vector<cv::Rect> &bodies);

    std::shared_ptr<mirovane::BodyPoseClassify> m_recogniser;
    std::vector<cv::Rect> m_rects; ///< input
    std::vector<int> m_states;     ///< one class for each rectangle, 0 to 4
    std::vector<float> m_scores;
    double m_value = 0; ///< plain sum of the weights of the classes; any other class adds nothing

protected:
    void call() override;
    bool fits() const override;
    void conclude() override;
};
