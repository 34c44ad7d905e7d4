#include "mirovane/handupclassify.h"

#include "cascade.h"
#include "facefinder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <opencv2/imgproc.hpp>

namespace {

using namespace mirovane::open;

constexpr int handIsUp = 0;
constexpr int noHand = 1;

// Everything is judged in a working picture in which the face has this side and this place.
constexpr int faceSide = 40;
const cv::Size workingSize(160, 136);
const cv::Rect workingFace(60, 60, faceSide, faceSide);
constexpr double headColumn = 80.0;
// A hand isn't looked for below this row, some way under the chin: lowered hands and the chest are there.
constexpr int lowestRow = 112;
// A raised hand reaches above the line of the eyes.
constexpr int eyeRow = 78;
// Things wider than this are furniture or walls, whatever their colour.
constexpr int widestRun = 40;
// Area of a hand that is seen whole, and the least that counts, in pixels of the working picture.
constexpr double wholeHand = 420.0;
constexpr double leastHand = 190.0;
constexpr double mostHand = 1500.0;

constexpr int bins = 32;
constexpr float brightnessStep = 256.0F / bins;
constexpr float chromaStart = 78.0F;
constexpr float chromaStep = 3.125F;

/// Frequencies of colours (brightness and the two chromas) within a part of a picture, smoothed over
/// neighbouring colours. They add up to one.
class ColourTable
{
public:
    ColourTable(const cv::Mat &colours, const cv::Mat &part) : m_share(3, sides().data(), CV_32F)
    {
        m_share = 0;
        int count = 0;
        for (int y = 0; y < colours.rows; ++y) {
            for (int x = 0; x < colours.cols; ++x) {
                if (part.at<uchar>(y, x) == 0)
                    continue;
                add(colours.at<cv::Vec3b>(y, x));
                ++count;
            }
        }
        m_share /= std::max(1, count);
    }

    float operator()(const cv::Vec3b &colour) const
    {
        const cv::Vec3i bin = binOf(colour);
        return m_share.at<float>(bin[0], bin[1], bin[2]);
    }

    /// The share of a bin at a density, and thus what a density compares with.
    static constexpr double binVolume = double(brightnessStep) * chromaStep * chromaStep;

private:
    static const std::array<int, 3> &sides()
    {
        static const std::array<int, 3> sides{bins, bins, bins};
        return sides;
    }

    static cv::Vec3i binOf(const cv::Vec3b &colour)
    {
        const auto bin = [](float value) { return std::clamp(int(value), 0, bins - 1); };
        return {bin(colour[0] / brightnessStep), bin((colour[1] - chromaStart) / chromaStep),
                bin((colour[2] - chromaStart) / chromaStep)};
    }

    void add(const cv::Vec3b &colour)
    {
        static const float spread[] = {0.25F, 0.5F, 0.25F};
        const cv::Vec3i middle = binOf(colour);
        for (int i = -1; i <= 1; ++i)
            for (int j = -1; j <= 1; ++j)
                for (int k = -1; k <= 1; ++k)
                    m_share.at<float>(std::clamp(middle[0] + i, 0, bins - 1),
                                      std::clamp(middle[1] + j, 0, bins - 1),
                                      std::clamp(middle[2] + k, 0, bins - 1)) +=
                        spread[i + 1] * spread[j + 1] * spread[k + 1];
    }

    cv::Mat m_share;
};

/// The colour of a person's skin, from nose and cheeks.
class SkinColour
{
public:
    explicit SkinColour(const cv::Mat &skin)
    {
        for (int channel = 0; channel < 3; ++channel) {
            std::vector<double> values;
            for (int y = 0; y < skin.rows; ++y)
                for (int x = 0; x < skin.cols; ++x)
                    values.push_back(skin.at<cv::Vec3b>(y, x)[channel]);
            m_middle[channel] = median(values);
            for (double &value : values)
                value = std::abs(value - m_middle[channel]);
            // 1.48 makes a standard deviation of it; a hand varies somewhat more than the cheeks.
            const double deviation = 1.48 * 1.2 * median(values);
            m_deviation[channel] =
                channel == 0 ? std::clamp(deviation, 16.0, 40.0) : std::clamp(deviation, 2.5, 8.0);
        }
    }

    /// How often skin shows the colour, comparable with a ColourTable; 0 for one that is no skin at all.
    double operator()(const cv::Vec3b &colour) const
    {
        double sum = 0;
        for (int channel = 0; channel < 3; ++channel) {
            const double off = (colour[channel] - m_middle[channel]) / m_deviation[channel];
            if (off * off > farthest)
                return 0;
            sum += off * off;
        }
        const double peak = ColourTable::binVolume /
                            (std::pow(2 * CV_PI, 1.5) * m_deviation[0] * m_deviation[1] * m_deviation[2]);
        return peak * std::exp(-sum / 2);
    }

private:
    static constexpr double farthest = 12.0;

    static double median(std::vector<double> values)
    {
        const auto middle = values.begin() + std::ptrdiff_t(values.size() / 2);
        std::nth_element(values.begin(), middle, values.end());
        return *middle;
    }

    std::array<double, 3> m_middle{};
    std::array<double, 3> m_deviation{};
};

/// The working picture around a face, in brightness and chroma.
cv::Mat workingPicture(const cv::Mat &image, const cv::Rect &face)
{
    const double scale = double(faceSide) / face.width;
    const cv::Rect area(cvRound(face.x - workingFace.x / scale), cvRound(face.y - workingFace.y / scale),
                        cvRound(workingSize.width / scale), cvRound(workingSize.height / scale));
    const cv::Rect inside = clipped(area, image.size());
    cv::Mat part = image(inside);
    if (inside != area)
        cv::copyMakeBorder(part, part, inside.y - area.y, area.br().y - inside.br().y, inside.x - area.x,
                           area.br().x - inside.br().x, cv::BORDER_REPLICATE | cv::BORDER_ISOLATED);
    cv::Mat working;
    cv::resize(part, working, workingSize, 0, 0, scale < 1 ? cv::INTER_AREA : cv::INTER_LINEAR);
    cv::cvtColor(working, working, cv::COLOR_BGR2YCrCb);
    return working;
}

/// Where a raised hand may be: beside and above the head, outside of all the faces (of the picture) with
/// their hair and necks, and off the own chest.
cv::Mat handZone(const std::vector<cv::Rect> &faces)
{
    cv::Mat zone(workingSize, CV_8UC1, cv::Scalar(255));
    zone.rowRange(lowestRow, workingSize.height) = 0;
    const double scale = double(faceSide) / faces.front().width;
    for (const cv::Rect &face : faces) {
        const double side = face.width * scale;
        const cv::Point2d middle(workingFace.x + (face.x - faces.front().x) * scale + side / 2,
                                 workingFace.y + (face.y - faces.front().y) * scale + side * 0.4);
        cv::ellipse(zone, middle, cv::Size2d(side * 0.6, side * 0.85), 0, 0, 360, 0, cv::FILLED);
        const bool own = &face == &faces.front();
        const cv::Rect below(cvRound(middle.x - side * 0.75), cvRound(middle.y + side * 0.4),
                             cvRound(side * 1.5), own ? workingSize.height : cvRound(side * 0.8));
        zone(clipped(below, workingSize)) = 0;
    }
    return zone;
}

/// The pixels of the zone that are rather skin of this person than background, without the wide ones.
cv::Mat skinMask(const cv::Mat &colours, const cv::Mat &zone)
{
    const cv::Rect cheeks(workingFace.x + 10, workingFace.y + 14, 20, 20);
    const SkinColour skin(colours(cheeks));
    const ColourTable background(colours, zone);
    cv::Mat mask(workingSize, CV_8UC1, cv::Scalar(0));
    for (int y = 0; y < mask.rows; ++y) {
        for (int x = 0; x < mask.cols; ++x) {
            const cv::Vec3b &colour = colours.at<cv::Vec3b>(y, x);
            if (skin(colour) > 1.5 * (double(background(colour)) + 1e-4))
                mask.at<uchar>(y, x) = 255;
        }
    }

    cv::Mat wide;
    cv::morphologyEx(mask, wide, cv::MORPH_OPEN, cv::getStructuringElement(cv::MORPH_RECT, {widestRun, 1}));
    cv::dilate(wide, wide, cv::getStructuringElement(cv::MORPH_RECT, {5, 3}));
    mask &= ~wide & zone;
    cv::morphologyEx(mask, mask, cv::MORPH_OPEN, cv::getStructuringElement(cv::MORPH_RECT, {2, 2}));
    cv::morphologyEx(mask, mask, cv::MORPH_CLOSE, cv::getStructuringElement(cv::MORPH_RECT, {5, 5}));
    return mask;
}

/// Whether something leads down from a place in the working picture to a point below: outside of the
/// head's column, most of the way differs from what lies on both sides of it.
bool leadsTo(const cv::Mat &colours, const cv::Point &from, const cv::Point &to)
{
    constexpr int aside = 14;
    constexpr double leastDifference = 18.0;
    constexpr int leastRows = 8;
    int rows = 0;
    int rowsOfArm = 0;
    for (int y = from.y; y < to.y; ++y) {
        const int x = from.x + (to.x - from.x) * (y - from.y) / (to.y - from.y);
        if (x < aside || x + aside >= colours.cols || std::abs(x - headColumn) < 0.6 * faceSide)
            continue;
        const cv::Vec3b &middle = colours.at<cv::Vec3b>(y, x);
        ++rows;
        if (cv::norm(middle, colours.at<cv::Vec3b>(y, x - aside)) > leastDifference &&
            cv::norm(middle, colours.at<cv::Vec3b>(y, x + aside)) > leastDifference)
            ++rowsOfArm;
    }
    return rows >= leastRows && rowsOfArm * 3 >= rows * 2;
}

/// Whether an arm leads from a hand to the desk below it or to the shoulder.
bool hasArm(const cv::Mat &colours, const cv::Rect &hand)
{
    constexpr int shoulderRow = 94;
    const cv::Point wrist(hand.x + hand.width / 2, hand.br().y + 1);
    const int shoulder = cvRound(headColumn + (wrist.x < headColumn ? -0.9 : 0.9) * faceSide);
    return leadsTo(colours, wrist, {wrist.x, shoulderRow}) ||
           leadsTo(colours, wrist, {shoulder, shoulderRow});
}

/// How much a connected region looks like a raised hand: 0 not at all, 1 like a whole one.
double likeness(const cv::Mat &colours, const cv::Rect &box, double area, const cv::Point2d &centre)
{
    const bool shaped = box.width >= 10 && box.width <= 56 && box.height >= 14 && box.height <= 80 &&
                        box.height * 5 >= box.width * 3 && area >= 0.3 * box.area() && area <= mostHand;
    const double sideways = std::abs(centre.x - headColumn) / faceSide;
    if (!shaped || box.y > eyeRow || sideways > 1.75)
        return 0;
    // What hovers above the head belongs to somebody behind, unless an arm leads to it.
    if (box.br().y < workingFace.y && !hasArm(colours, box))
        return 0;
    return std::clamp(area / wholeHand, 0.0, 1.0);
}

/**
 * Tells raised hands by skin beside or above the head.
 *
 * The colour of skin is learnt from the person's own face, the colours of the background from around it,
 * both for each picture anew. What is rather skin than background, hangs together, has the size of a hand
 * and reaches above the eyes is a raised hand.
 */
class OpenHandup : public mirovane::HandupClassify
{
public:
    bool load(const std::string &model)
    {
        cv::FileStorage file;
        return openModel(file, model, "HandupClassify") &&
               m_faces.load(besideModel(model, file["face"].string()));
    }

    void reserved1() override {}
    void reserved2() override {}

    int classify(const cv::Mat &image, const std::vector<cv::Rect> &rects, std::vector<int> &labels,
                 std::vector<float> &scores, bool) override
    {
        const cv::Mat grey = toGrey(image);
        cv::Rect judged;
        double best = 0;
        for (const cv::Rect &rect : rects) {
            const cv::Rect inside = clipped(rect, grey.size());
            // Several crops of one person come in a row; they have the same face and surroundings.
            if (inside.empty() || (inside & judged).area() < 0.8 * (inside | judged).area()) {
                best = judge(image, grey, inside);
                judged = inside;
            }
            const double certainty = probability(best);
            labels.push_back(certainty >= 0.5 ? handIsUp : noHand);
            scores.push_back(float(std::max(certainty, 1 - certainty)));
        }
        return grey.empty() ? -1 : 0;
    }

private:
    /// 0.5 for the least hand that counts; a band of doubt, with scores below 0.8, lies around it.
    static double probability(double likeness)
    {
        const double limit = leastHand / wholeHand;
        return 1 / (1 + std::exp(-16 * (likeness - limit)));
    }

    double judge(const cv::Mat &image, const cv::Mat &grey, const cv::Rect &body) const
    {
        // Without a face nothing is known of the person's skin; without colour it can't be told from walls.
        if (body.empty() || image.type() != CV_8UC3)
            return 0;
        const cv::Rect expected = faceOfBody(body);
        const cv::Rect area(expected.x - 2 * expected.width, expected.y - 2 * expected.width,
                            5 * expected.width, 5 * expected.width);
        const auto faces = findFaces(m_faces, grey, body, area);
        if (faces.empty())
            return 0;

        const cv::Mat colours = workingPicture(image, faces.front());
        const cv::Mat mask = skinMask(colours, handZone(faces));
        cv::Mat labels;
        cv::Mat statistics;
        cv::Mat centres;
        const int count = cv::connectedComponentsWithStats(mask, labels, statistics, centres);
        double best = 0;
        for (int i = 1; i < count; ++i) {
            const int *row = statistics.ptr<int>(i);
            const cv::Rect box(row[cv::CC_STAT_LEFT], row[cv::CC_STAT_TOP], row[cv::CC_STAT_WIDTH],
                               row[cv::CC_STAT_HEIGHT]);
            const cv::Point2d centre(centres.at<double>(i, 0), centres.at<double>(i, 1));
            best = std::max(best, likeness(colours, box, row[cv::CC_STAT_AREA], centre));
        }
        return best;
    }

    SharedCascade m_faces;
};

} // namespace

mirovane::HandupClassify *mirovane::HandupClassify::create(const std::string &model, const std::string &)
{
    auto hands = std::make_unique<OpenHandup>();
    return hands->load(model) ? hands.release() : nullptr;
}
