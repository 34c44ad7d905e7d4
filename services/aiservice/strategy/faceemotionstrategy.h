#pragma once

#include "basestrategy.h"

/// A name of the factory without an analysis of its own: smiles are found by ConcerntrationStrategy.
class FaceEmotionStrategy : public BaseStrategy
{
    Q_OBJECT

public:
    explicit FaceEmotionStrategy(const QString &requestID);

    void handleFrame(const cv::Mat &frame) override;
};
