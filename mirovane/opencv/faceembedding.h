#pragma once

#include "learnednet.h"

#include <array>
#include <list>

namespace mirovane::open {

/// What tells a face from others: the smaller the distance of two, the likelier they are one person.
using FaceVector = std::array<float, 128>;

float distance(const FaceVector &a, const FaceVector &b);

/// The vector as a feature that may be averaged and is compared by cosine: a row of 512 CV_32F of length 1.
/// The cosine of two is exp(-d * d / 0.343) for vectors that are d apart, with a random error of 0.04; 0.35
/// is a distance of 0.6.
cv::Mat featureOf(const FaceVector &vector);

/**
 * Turns a head crop (CV_8UC3, 128 by 128, the eyes 40 pixels apart around (64, 57.6)) into a face vector. The
 * vectors of the last crops are kept, so that enrolling a face and asking for its feature costs one run.
 *
 * Threads: one caller at a time.
 */
class FaceEmbedding
{
public:
    /// Errors of describe(). -1 is not among them: callers of the recogniser take it for a success.
    enum Error
    {
        WrongPicture = -2,
        NoContrast = -3
    };

    explicit FaceEmbedding(std::shared_ptr<LearnedNet> net) : m_net(std::move(net)) {}

    /// 0, or a negative error.
    int describe(const cv::Mat &face, FaceVector &vector);

private:
    struct Known
    {
        cv::Mat face;
        FaceVector vector;
    };

    FaceVector run(const cv::Mat &face);

    std::shared_ptr<LearnedNet> m_net;
    std::list<Known> m_known; ///< the latest first
};

} // namespace mirovane::open
