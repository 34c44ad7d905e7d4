#pragma once

#include "basemodel.h"
#include "mirovane/handupclassify.h"

/// Judges of bodies whether a hand is up, over three crops of each body. See BaseModel.
class HandupModel : public BaseModel
{
    Q_OBJECT

public:
    HandupModel(const cv::Mat &image, std::shared_ptr<mirovane::HandupClassify> recogniser,
                const std::vector<cv::Rect> &bodies);

    /// The three crops for each rectangle, growing upwards by 6 pixels from one to the next.
    std::vector<cv::Rect> expandedRects() const;

    std::shared_ptr<mirovane::HandupClassify> m_recogniser;
    std::vector<cv::Rect> m_rects; ///< input; detect() adds 1 to each width and height
    std::vector<int> m_states;     ///< one for each rectangle: 0 a hand is up, 1 none is
    std::vector<int> m_reserved;   ///< nothing fills it; kept on purpose

protected:
    bool prepare() override;
    void call() override;
    bool fits() const override;
    void conclude() override;

private:
    std::vector<cv::Rect> m_crops;
    std::vector<int> m_labels;        ///< one for each crop
    std::vector<float> m_certainties; ///< one for each crop
};
