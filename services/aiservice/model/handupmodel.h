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

    bool detect() override;
    void emitFinished(bool ret) override;

    /// The three crops for each rectangle, growing upwards by 6 pixels from one to the next.
    std::vector<cv::Rect> expandedRects() const;

    std::shared_ptr<mirovane::HandupClassify> m_recogniser;
    std::vector<cv::Rect> m_rects; ///< input; detect() adds 1 to each width and height
    std::vector<int> m_states;     ///< one for each rectangle: 0 a hand is up, 1 none is
    std::vector<int> m_reserved;   ///< nothing fills it

private:
    bool classify(const cv::Mat &image, const std::vector<cv::Rect> &crops, std::vector<int> &labels,
                  std::vector<float> &scores);
};
