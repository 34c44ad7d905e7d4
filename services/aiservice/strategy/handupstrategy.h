#pragma once

#include "basestrategy.h"

/// Raised hands by the pose network, as event 1013. It waits for a pose network: without one every frame
/// ends with a line in the log. See BaseStrategy for threads and life.
class HandupStrategy : public BaseStrategy
{
    Q_OBJECT

public:
    explicit HandupStrategy(const QString &requestID);

    void handleFrame(const cv::Mat &frame) override;
};
