#pragma once

#include "basemodel.h"
#include "mirovane/poseclassifycmu.h"

/// Classifies the pose of key-point matrices. See BaseModel.
class CMUPoseModel : public BaseModel
{
    Q_OBJECT

public:
    CMUPoseModel(const cv::Mat &image, std::shared_ptr<mirovane::PoseClassifyCMU> recogniser,
                 const std::vector<cv::Mat> &keyPoints);

    std::shared_ptr<mirovane::PoseClassifyCMU> m_recogniser;
    std::vector<cv::Mat> m_keyPoints; ///< input
    std::vector<int> m_states;        ///< one for each matrix
    std::vector<float> m_scores;

protected:
    void call() override;
    bool fits() const override;
};
