#pragma once

#include "basestrategy.h"

/// Raised hands by the crop classifier, as event 1013, once in 30 frames. A state of 0 means that a hand
/// is up. See BaseStrategy for threads and life.
class handupPickStrategy : public BaseStrategy
{
    Q_OBJECT

public:
    explicit handupPickStrategy(const QString &requestID);

    void handleFrame(const cv::Mat &frame) override;
};
