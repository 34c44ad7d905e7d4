#pragma once

#include "basemodel.h"
#include "mirovane/posedetectioncmu.h"

/// Finds the bodies of a picture with their key points, by a pose network. See BaseModel.
class CMUModel : public BaseModel
{
    Q_OBJECT

public:
    CMUModel(const cv::Mat &image, std::shared_ptr<mirovane::PoseDetectionCMU> recogniser);

    void emitFinished(bool ret) override;

    std::shared_ptr<mirovane::PoseDetectionCMU> m_recogniser;
    std::vector<cv::Rect> m_rects;
    std::vector<cv::Mat> m_keyPoints; ///< in step with m_rects: one row x0, y0, x1, y1, ... each

protected:
    void call() override;
    bool fits() const override;
    void discard() override;
    void conclude() override;

signals:
    void finished(bool ret, CMUModel *resultModel);
};
