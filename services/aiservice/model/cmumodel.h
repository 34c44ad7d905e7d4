#pragma once

#include "basemodel.h"

#include "mirovane/posedetectioncmu.h"

/// Finds the bodies of a picture with their key points, by a pose network. Takes no lock. See BaseModel.
class CMUModel : public BaseModel
{
    Q_OBJECT

public:
    CMUModel(const cv::Mat &image, std::shared_ptr<mirovane::PoseDetectionCMU> recogniser);

    bool detect() override;
    void emitFinished(bool ret) override;

    std::shared_ptr<mirovane::PoseDetectionCMU> m_recogniser;
    std::vector<cv::Rect> m_rects;
    std::vector<cv::Mat> m_keyPoints; ///< in step with m_rects: one row x0, y0, x1, y1, ... each

signals:
    void finished(bool ret, CMUModel *resultModel);
};
