#include "faceemotionstrategy.h"

FaceEmotionStrategy::FaceEmotionStrategy(const QString &requestID)
    : BaseStrategy(QStringLiteral("FaceEmotionStrategy"), requestID)
{
}

void FaceEmotionStrategy::handleFrame(const cv::Mat &) {}
