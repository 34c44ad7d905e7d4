#include "camerapicture.h"

#include "imagereader.h"

#include <opencv2/imgproc.hpp>

namespace {

/// How long the first frame is waited for after attaching.
constexpr auto firstFrameTimeout = std::chrono::milliseconds(200);

} // namespace

CameraPicture::CameraPicture() : m_reader(std::make_unique<ImageReader>(QStringLiteral("Camera")))
{
    QObject::connect(
        m_reader.get(), &ImageReader::newImageBlockSignal, m_reader.get(),
        [this](const ImageBlock &block) { take(block); }, Qt::DirectConnection);
    m_reading = m_reader->startToRead();
}

CameraPicture::~CameraPicture() = default;

void CameraPicture::take(const ImageBlock &block)
{
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_newest = block;
    }
    m_arrived.notify_one();
}

cv::Mat CameraPicture::current()
{
    if (!m_reading)
        m_reading = m_reader->startToRead();
    if (!m_reading)
        return {};
    std::unique_lock<std::mutex> guard(m_mutex);
    m_arrived.wait_for(guard, firstFrameTimeout, [this] { return m_newest.data != nullptr; });
    const auto block = m_newest;
    guard.unlock();

    const int channels = block.format == RGB ? 3 : block.format == RGBA ? 4 : 0;
    if (!block.data || channels == 0 || block.width <= 0 || block.height <= 0 ||
        std::int64_t(block.width) * block.height * channels > block.size)
        return {};
    const cv::Mat pixels(block.height, block.width, CV_8UC(channels), block.data);
    cv::Mat picture;
    // RGBA is stored the way that the service reads it: blue first.
    cv::cvtColor(pixels, picture, channels == 3 ? cv::COLOR_RGB2BGR : cv::COLOR_BGRA2BGR);
    return picture;
}
