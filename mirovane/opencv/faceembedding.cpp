#include "faceembedding.h"

#include "common.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <random>

namespace mirovane::open {

namespace {

constexpr int cropSide = 128;
constexpr int netSide = 150;

/// Crops whose vectors are kept: those of a full frame, for two analyses that handle the same one.
constexpr size_t mostKnown = 100;

/// A standard deviation of grey values below this is a plain surface.
constexpr double leastContrast = 1;

/// Frequencies of the feature, which has a cosine and a sine of each.
constexpr int frequencies = 256;

/// Normal random numbers of the variance that makes the cosine exp(-d * d / 0.343). They are the same on
/// every machine, as features outlive the process.
cv::Mat makeDirections()
{
    constexpr double variance = 1 / 0.1715;
    std::mt19937 random(1);
    const auto uniform = [&random] { return (random() + 0.5) / 4294967296.0; };
    cv::Mat directions(frequencies, int(FaceVector().size()), CV_32F);
    for (int row = 0; row < directions.rows; ++row) {
        for (int column = 0; column < directions.cols; ++column) {
            const double radius = std::sqrt(-2 * variance * std::log(uniform()));
            directions.at<float>(row, column) = float(radius * std::cos(2 * CV_PI * uniform()));
        }
    }
    return directions;
}

} // namespace

float distance(const FaceVector &a, const FaceVector &b)
{
    float sum = 0;
    for (size_t i = 0; i < a.size(); ++i)
        sum += (a[i] - b[i]) * (a[i] - b[i]);
    return std::sqrt(sum);
}

cv::Mat featureOf(const FaceVector &vector)
{
    static const cv::Mat directions = makeDirections();
    const cv::Mat column(int(vector.size()), 1, CV_32F, const_cast<float *>(vector.data()));
    const cv::Mat angles = directions * column;
    const double length = std::sqrt(double(frequencies));
    cv::Mat feature(1, 2 * frequencies, CV_32F);
    for (int i = 0; i < frequencies; ++i) {
        const double angle = angles.at<float>(i);
        feature.at<float>(2 * i) = float(std::cos(angle) / length);
        feature.at<float>(2 * i + 1) = float(std::sin(angle) / length);
    }
    return feature;
}

int FaceEmbedding::describe(const cv::Mat &face, FaceVector &vector)
{
    if (face.type() != CV_8UC3 || face.size() != cv::Size(cropSide, cropSide))
        return WrongPicture;
    const auto isFace = [&face](const Known &known) { return samePixels(known.face, face); };
    const auto found = std::find_if(m_known.begin(), m_known.end(), isFace);
    if (found != m_known.end()) {
        m_known.splice(m_known.begin(), m_known, found);
        vector = found->vector;
        return 0;
    }
    cv::Mat grey;
    cv::cvtColor(face, grey, cv::COLOR_BGR2GRAY);
    cv::Scalar mean, deviation;
    cv::meanStdDev(grey, mean, deviation);
    if (deviation[0] < leastContrast)
        return NoContrast;
    vector = run(face);
    m_known.push_front({face.clone(), vector});
    if (m_known.size() > mostKnown)
        m_known.pop_back();
    return 0;
}

FaceVector FaceEmbedding::run(const cv::Mat &face)
{
    // From the eyes of the crop to those of the pictures that the net learnt from; the rows that the crop
    // lacks at the bottom are repeated.
    const cv::Matx23d place(1.315, 0, 74.0 - 1.315 * 64, //
                            0, 1.315, 47.1 - 1.315 * 57.6);
    cv::Mat picture;
    cv::warpAffine(face, picture, place, {netSide, netSide}, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    const auto blob = m_net->run(inputOf({picture}, faceScale), {"feature"}).front();
    FaceVector vector;
    std::copy_n(blob.ptr<float>(), vector.size(), vector.begin());
    return vector;
}

} // namespace mirovane::open
