#include "learnednet.h"

#include "common.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <map>
#include <numeric>

namespace mirovane::open {

namespace {

/// What the instances that wait for their next use may have as inputs, in numbers: those of a full frame at
/// two sizes and many cuts. An instance holds some fifty times that.
constexpr size_t mostIdleNumbers = 4'000'000;

size_t numbersOf(const std::vector<int> &shape)
{
    return std::accumulate(shape.begin(), shape.end(), size_t(1),
                           [](size_t a, int b) { return a * size_t(b); });
}

} // namespace

std::shared_ptr<LearnedNet> LearnedNet::open(const std::string &path)
{
    static std::mutex mutex;
    static std::map<std::string, std::weak_ptr<LearnedNet>> opened;
    const std::lock_guard<std::mutex> locker(mutex);
    auto &known = opened[path];
    if (auto net = known.lock())
        return net;
    if (!isReadable(path))
        return nullptr;
    std::ifstream file(path, std::ios::binary);
    std::vector<uchar> content(std::istreambuf_iterator<char>(file), {});
    try {
        std::shared_ptr<LearnedNet> net(new LearnedNet(std::move(content)));
        auto planned = net->borrow({});
        net->m_outputs = planned.net.getUnconnectedOutLayersNames();
        net->giveBack(std::move(planned));
        known = net;
        return net;
    } catch (const cv::Exception &) {
        return nullptr;
    }
}

std::shared_ptr<LearnedNet> LearnedNet::find(const std::string &config, const std::string &key)
{
    return open(netPath(config, key));
}

bool LearnedNet::gives(const std::vector<std::string> &outputs) const
{
    return std::all_of(outputs.begin(), outputs.end(), [this](const std::string &output) {
        return std::find(m_outputs.begin(), m_outputs.end(), output) != m_outputs.end();
    });
}

std::vector<cv::Mat> LearnedNet::run(const cv::Mat &input, const std::vector<std::string> &outputs)
{
    ++m_runs;
    auto planned = borrow({input.size.p, input.size.p + input.dims});
    planned.net.setInput(input);
    std::vector<cv::Mat> blobs;
    planned.net.forward(blobs, outputs);
    // The blobs are the instance's own memory.
    for (auto &blob : blobs)
        blob = blob.clone();
    giveBack(std::move(planned));
    return blobs;
}

LearnedNet::Planned LearnedNet::borrow(const std::vector<int> &shape)
{
    {
        const std::lock_guard<std::mutex> locker(m_mutex);
        const auto fits = [&shape](const Planned &idle) { return idle.shape.empty() || idle.shape == shape; };
        const auto found = std::find_if(m_idle.rbegin(), m_idle.rend(), fits);
        if (found != m_idle.rend()) {
            auto planned = std::move(*found);
            m_idle.erase(std::next(found).base());
            planned.shape = shape;
            return planned;
        }
    }
    Planned planned{shape, cv::dnn::readNetFromONNX(m_file)};
    planned.net.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
    return planned;
}

void LearnedNet::giveBack(Planned planned)
{
    const std::lock_guard<std::mutex> locker(m_mutex);
    m_idle.push_back(std::move(planned));
    size_t numbers = 0;
    for (const auto &idle : m_idle)
        numbers += numbersOf(idle.shape);
    while (numbers > mostIdleNumbers && m_idle.size() > 1) {
        numbers -= numbersOf(m_idle.front().shape);
        m_idle.erase(m_idle.begin());
    }
}

std::string netPath(const std::string &config, const std::string &key)
{
    cv::FileStorage file;
    if (!openModel(file, config, "common"))
        return {};
    const auto name = file["nets"][key];
    return name.isString() ? besideModel(config, name.string()) : std::string();
}

cv::Mat inputOf(const std::vector<cv::Mat> &pictures, const PixelScale &scale)
{
    return cv::dnn::blobFromImages(pictures, scale.factor, {}, scale.mean, true);
}

cv::Mat squareCut(const cv::Mat &picture, const cv::Point2f &centre, float squareSide, int side)
{
    cv::Mat cut = cv::Mat::zeros(side, side, picture.type());
    const float scale = float(side) / squareSide;
    if (picture.empty() || !(squareSide > 0) || !std::isfinite(scale))
        return cut;
    const cv::Rect2f all({}, cv::Size2f(picture.size()));
    const cv::Point2f corner(centre.x - squareSide / 2, centre.y - squareSide / 2);
    const auto seen = cv::Rect2f(corner, cv::Size2f(squareSide, squareSide)) & all;
    if (seen.empty())
        return cut;
    if (scale >= 0.6F) {
        // Pixel centres lie half a pixel inside the edges.
        const cv::Matx23f place(scale, 0, (0.5F - corner.x) * scale - 0.5F, //
                                0, scale, (0.5F - corner.y) * scale - 0.5F);
        cv::warpAffine(picture, cut, place, cut.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT);
        return cut;
    }
    // Whole pixels are averaged; the cut is placed to a pixel of the picture.
    const cv::Rect whole = cv::Rect(cv::Point(cvFloor(seen.x), cvFloor(seen.y)),
                                    cv::Point(cvCeil(seen.br().x), cvCeil(seen.br().y))) &
                           cv::Rect({}, picture.size());
    const auto placed = [&](float value, float origin) { return cvRound((value - origin) * scale); };
    const cv::Rect target =
        cv::Rect(cv::Point(placed(float(whole.x), corner.x), placed(float(whole.y), corner.y)),
                 cv::Point(placed(float(whole.br().x), corner.x), placed(float(whole.br().y), corner.y))) &
        cv::Rect({}, cut.size());
    if (!target.empty())
        cv::resize(picture(whole), cut(target), target.size(), 0, 0, cv::INTER_AREA);
    return cut;
}

cv::Mat toColour(const cv::Mat &image)
{
    if (image.empty() || image.dims != 2 || image.depth() != CV_8U)
        return {};
    cv::Mat colour;
    switch (image.channels()) {
    case 1:
        cv::cvtColor(image, colour, cv::COLOR_GRAY2BGR);
        return colour;
    case 3:
        return image;
    case 4:
        cv::cvtColor(image, colour, cv::COLOR_BGRA2BGR);
        return colour;
    default:
        return {};
    }
}

} // namespace mirovane::open
