#pragma once

#include "basestrategy.h"

/**
 * How attentive the class is: once in 30 frames the pose class of every identified student and the sum
 * of its weights, as event 1012, and each smile as event 1019. Keeps nothing from pass to pass. See
 * BaseStrategy for threads and life.
 */
class ConcerntrationStrategy : public BaseStrategy
{
    Q_OBJECT

public:
    explicit ConcerntrationStrategy(const QString &requestID);

    void handleFrame(const cv::Mat &frame) override;

    /// Sends event 1019 if the face smiles.
    /// @param face view of the frame on the face
    /// @param rect the face in frame coordinates, for the event
    void detectSmile(const cv::Mat &face, const QString &stuID, const cv::Rect_<int> &rect);
};
