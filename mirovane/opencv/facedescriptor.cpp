#include "facedescriptor.h"

#include "cascade.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <opencv2/imgproc.hpp>

namespace mirovane::open {

namespace {

const cv::Size cropSize(128, 128);

/// A crop whose grey values deviate less than this shows no face.
constexpr double leastDeviation = 2;

/// The part of the crop that is described: brows to chin. A rim around it fades out, so that the
/// wrap-around of the Fourier transform brings in no edge.
const cv::Rect core(24, 34, 80, 88);
constexpr int rim = 6;
const cv::Rect field(16, 20, 96, 108);
const cv::Size cells(10, 11);

/// The same part at half the size, where crops are laid onto the mean face, and how far they may move.
const cv::Size halfSize(64, 64);
const cv::Rect halfCore(12, 17, 40, 44);
constexpr int halfReach = 3;

/// The middle of the core, about which a crop is turned and scaled.
const cv::Point2d pivot(64, 70);

/// What a move by the full reach, ten per cent of size or eight degrees cost against correlation.
constexpr double moveCost = 0.05;

/// Model files keep the means as whole numbers.
constexpr double modelUnit = 0.001;

double fade(int position, int start, int end)
{
    const double inside = std::min(position - start + rim, end + rim - position) / (2.0 * rim);
    return 0.5 - 0.5 * std::cos(CV_PI * std::clamp(inside, 0.0, 1.0));
}

cv::Mat makeWindow()
{
    cv::Mat window(field.size(), CV_32F);
    for (int y = 0; y < window.rows; ++y)
        for (int x = 0; x < window.cols; ++x)
            window.at<float>(y, x) = float(fade(x + field.x, core.x, core.x + core.width) *
                                           fade(y + field.y, core.y, core.y + core.height));
    return window;
}

/// A Gabor filter of one direction and one side of the spectrum, so that its answer is complex and the
/// magnitude doesn't depend on where in the wave a line lies.
cv::Mat makeFilter(double wavelength, int direction, int directions)
{
    constexpr double octaves = 0.55;
    constexpr double spread = 0.45;
    const double angle = CV_PI * direction / directions;
    cv::Mat filter = cv::Mat::zeros(field.size(), CV_32F);
    for (int y = 0; y < filter.rows; ++y) {
        for (int x = 0; x < filter.cols; ++x) {
            const double u = double(x < filter.cols / 2 ? x : x - filter.cols) / filter.cols;
            const double v = double(y < filter.rows / 2 ? y : y - filter.rows) / filter.rows;
            const double frequency = std::hypot(u, v);
            if (frequency == 0)
                continue;
            const double turn = std::remainder(std::atan2(v, u) - angle, 2 * CV_PI) / spread;
            const double tune = std::log(frequency * wavelength) / octaves;
            filter.at<float>(y, x) = float(std::exp(-0.5 * (tune * tune + turn * turn)));
        }
    }
    return filter;
}

/// Takes light and shadow out: what is left is each pixel's place between its surroundings.
cv::Mat evenlyLit(const cv::Mat &grey)
{
    cv::Mat picture;
    grey.convertTo(picture, CV_32F);
    cv::Mat surroundings;
    cv::GaussianBlur(picture, surroundings, {}, 8);
    picture -= surroundings;
    cv::Mat contrast;
    cv::GaussianBlur(picture.mul(picture), contrast, {}, 12);
    cv::sqrt(contrast, contrast);
    return picture / (contrast + 4);
}

/// How a crop is to be moved so that it lies like the mean face.
struct Placement
{
    double size = 1;
    double angle = 0;    ///< degrees
    cv::Point2d move;    ///< pixels of the crop
    double value = -100; ///< correlation less the cost of moving
};

/// The affine map of a placement into a picture that is smaller than the crop by the factor.
cv::Mat mapOf(const Placement &placement, double factor)
{
    cv::Mat map = cv::getRotationMatrix2D(pivot, placement.angle, placement.size * factor);
    map.at<double>(0, 2) += (pivot.x - placement.move.x) * factor - pivot.x;
    map.at<double>(1, 2) += (pivot.y - placement.move.y) * factor - pivot.y;
    return map;
}

cv::Mat halved(const cv::Mat &picture, const Placement &placement)
{
    cv::Mat half;
    cv::warpAffine(picture, half, mapOf(placement, 0.5), halfSize, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    return half;
}

/// Where between its neighbours the top of a parabola through three values lies.
double summit(double before, double top, double after)
{
    const double bend = before - 2 * top + after;
    return bend < 0 ? 0.5 * (before - after) / bend : 0;
}

/// The best move for one size and angle.
Placement bestMove(const cv::Mat &picture, const cv::Mat &face, double size, double angle)
{
    Placement result;
    result.size = size;
    result.angle = angle;
    const cv::Rect searched(halfCore.x - halfReach, halfCore.y - halfReach, halfCore.width + 2 * halfReach,
                            halfCore.height + 2 * halfReach);
    cv::Mat fit;
    cv::matchTemplate(halved(picture, result)(searched), face, fit, cv::TM_CCOEFF_NORMED);
    for (int y = 0; y < fit.rows; ++y)
        for (int x = 0; x < fit.cols; ++x)
            fit.at<float>(y, x) -= float(
                moveCost * (cv::Point(x - halfReach, y - halfReach).dot({x - halfReach, y - halfReach})) /
                (halfReach * halfReach));
    cv::Point top;
    cv::minMaxLoc(fit, nullptr, &result.value, nullptr, &top);
    cv::Point2d exact = top;
    if (top.x > 0 && top.x + 1 < fit.cols)
        exact.x += summit(fit.at<float>(top.y, top.x - 1), result.value, fit.at<float>(top.y, top.x + 1));
    if (top.y > 0 && top.y + 1 < fit.rows)
        exact.y += summit(fit.at<float>(top.y - 1, top.x), result.value, fit.at<float>(top.y + 1, top.x));
    result.move = (exact - cv::Point2d(halfReach, halfReach)) * 2;
    result.value -= moveCost * (std::pow(std::log(size) / 0.1, 2) + std::pow(angle / 8, 2));
    return result;
}

/// Size first, then the angle, then the size once more: a full search would find hardly more.
Placement bestPlacement(const cv::Mat &picture, const cv::Mat &face)
{
    cv::Mat soft;
    cv::GaussianBlur(picture, soft, {}, 1);
    auto best = bestMove(soft, face, 1, 0);
    const auto attempt = [&](double size, double angle) {
        const auto placement = bestMove(soft, face, size, angle);
        if (placement.value > best.value)
            best = placement;
    };
    for (const double size : {0.84, 0.89, 0.94, 1.06, 1.12, 1.19})
        attempt(size, 0);
    for (const double angle : {-9, -6, -3, 3, 6, 9})
        attempt(best.size, angle);
    for (const double step : {0.97, 1.03})
        attempt(best.size * step, best.angle);
    return best;
}

std::vector<int> inModelUnits(const cv::Mat &values)
{
    std::vector<int> result;
    for (const float value : cv::Mat_<float>(values))
        result.push_back(cvRound(value / modelUnit));
    return result;
}

/// Reads a matrix of the given size; false when the node holds another count of numbers.
bool readMean(const cv::FileNode &node, const cv::Size &size, cv::Mat &mean)
{
    std::vector<int> values;
    node >> values;
    if (int(values.size()) != size.area())
        return false;
    cv::Mat(values, true).reshape(1, size.height).convertTo(mean, CV_32F, modelUnit);
    return true;
}

void writeNumbers(std::ostream &out, const char *name, const std::vector<int> &values)
{
    out << name << ": [";
    for (size_t i = 0; i < values.size(); ++i)
        out << (i % 20 == 0 ? "\n  " : " ") << values[i] << (i + 1 < values.size() ? "," : " ]\n");
}

} // namespace

bool FaceDescriptor::load(const std::string &path)
{
    cv::FileStorage file;
    if (!openModel(file, path, "FaceIDDetection"))
        return false;
    try {
        file["wavelengths"] >> m_wavelengths;
        m_directions = int(file["directions"]);
        if (m_wavelengths.empty() || m_wavelengths.size() > 16 || m_directions < 1 || m_directions > 32)
            return false;
        m_filters.clear();
        for (const double wavelength : m_wavelengths) {
            if (!(wavelength > 0))
                return false;
            for (int i = 0; i < m_directions; ++i)
                m_filters.push_back(makeFilter(wavelength, i, m_directions));
        }
        return readMean(file["face"], halfCore.size(), m_face) &&
               readMean(file["strengths"], {int(m_filters.size()) * cells.area(), 1}, m_strengths);
    } catch (const cv::Exception &) {
        return false;
    }
}

void FaceDescriptor::save(const std::string &path) const
{
    std::ofstream out(path);
    out << "%YAML:1.0\n---\n"
        << "# How faces are described. The means are in thousandths: the picture of a face (44 rows of 40) "
           "and\n"
        << "# the strengths (for each wavelength and direction 11 rows of 10 cells).\n"
        << "class: \"FaceIDDetection\"\nwavelengths: [ ";
    for (size_t i = 0; i < m_wavelengths.size(); ++i)
        out << (i > 0 ? ", " : "") << cv::format("%.2f", m_wavelengths[i]);
    out << " ]\ndirections: " << m_directions << "\n";
    writeNumbers(out, "face", inModelUnits(m_face));
    writeNumbers(out, "strengths", inModelUnits(m_strengths));
}

void FaceDescriptor::learn(const std::vector<cv::Mat> &crops)
{
    std::vector<cv::Mat> pictures;
    for (const auto &crop : crops) {
        pictures.push_back(evenlyLit(toGrey(crop)));
        cv::Mat mirrored;
        cv::flip(pictures.back(), mirrored, 1);
        pictures.push_back(mirrored);
    }
    m_face = cv::Mat::zeros(halfCore.size(), CV_32F);
    for (const auto &picture : pictures) {
        cv::Mat soft;
        cv::GaussianBlur(picture, soft, {}, 1);
        m_face += halved(soft, {})(halfCore) / double(pictures.size());
    }
    m_strengths = cv::Mat::zeros(1, int(m_filters.size()) * cells.area(), CV_32F);
    for (const auto &picture : pictures)
        m_strengths += strengths(placed(picture)) / double(pictures.size());
}

int FaceDescriptor::describe(const cv::Mat &face, cv::Mat &feature) const
{
    if (face.dims != 2 || face.type() != CV_8UC3 || face.size() != cropSize)
        return WrongPicture;
    try {
        const auto grey = toGrey(face);
        cv::Scalar mean;
        cv::Scalar deviation;
        cv::meanStdDev(grey(core), mean, deviation);
        if (deviation[0] < leastDeviation)
            return NoContrast;
        const cv::Mat difference = strengths(placed(evenlyLit(grey))) - m_strengths;
        const double length = cv::norm(difference);
        if (!(length > 0))
            return NoContrast;
        feature = difference / length;
    } catch (const cv::Exception &) {
        return WrongPicture;
    }
    return 0;
}

/// Lays an evenly lit picture onto the mean face.
cv::Mat FaceDescriptor::placed(const cv::Mat &picture) const
{
    cv::Mat result;
    cv::warpAffine(picture, result, mapOf(bestPlacement(picture, m_face), 1), cropSize, cv::INTER_LINEAR,
                   cv::BORDER_REPLICATE);
    return result;
}

/// One row: for each filter the strengths in the cells, zero in the mean and of length 1, so that only
/// their distribution over the face counts.
cv::Mat FaceDescriptor::strengths(const cv::Mat &picture) const
{
    static const cv::Mat window = makeWindow();
    cv::Mat spectrum;
    cv::dft(picture(field).mul(window), spectrum, cv::DFT_COMPLEX_OUTPUT);
    std::vector<cv::Mat> parts(2);
    cv::split(spectrum, parts);

    cv::Mat row(1, int(m_filters.size()) * cells.area(), CV_32F);
    for (size_t i = 0; i < m_filters.size(); ++i) {
        cv::Mat answer;
        cv::merge(std::vector<cv::Mat>{parts[0].mul(m_filters[i]), parts[1].mul(m_filters[i])}, answer);
        cv::dft(answer, answer, cv::DFT_INVERSE | cv::DFT_SCALE);
        std::vector<cv::Mat> waves;
        cv::split(answer, waves);
        cv::Mat magnitude;
        cv::magnitude(waves[0], waves[1], magnitude);
        cv::Mat strength;
        cv::resize(magnitude(core - field.tl()), strength, cells, 0, 0, cv::INTER_AREA);
        strength -= cv::mean(strength);
        strength /= std::max(cv::norm(strength), 1e-6);
        strength.reshape(1, 1).copyTo(row.colRange(int(i) * cells.area(), int(i + 1) * cells.area()));
    }
    return row;
}

} // namespace mirovane::open
