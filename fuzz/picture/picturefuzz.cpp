#include "home.h"
#include "imageutil.h"
#include "source.h"

namespace {

constexpr int longestSide = 8192;

/// What the decoder promises of whatever it has been given.
void check(const cv::Mat &picture)
{
    if (picture.empty())
        return;
    if (picture.type() != CV_8UC3 || picture.cols > longestSide || picture.rows > longestSide)
        std::abort();
}

/// A picture keeps its size through an encoding and a decoding, and its bytes may all be read.
void goRound(const cv::Mat &picture)
{
    const cv::Mat back = ai_image::convertBase642Mat(ai_image::convertMat2Base64(picture));
    check(back);
    if (back.size() != picture.size())
        std::abort();

    cv::Mat smooth;
    ai_image::beautifyFace(back, smooth);
    if (smooth.size() != back.size())
        std::abort();
}

void handleText(const QString &text)
{
    const cv::Mat picture = ai_image::convertBase642Mat(text);
    check(picture);
    if (!picture.empty() && picture.total() <= 128 * 128)
        goRound(picture);
}

/// A matrix of any type and size, whole or a part of another.
void handleMatrix(Source &bytes)
{
    const int type = bytes.take<std::uint8_t>() % (CV_16F + 1 + 8 * 4);
    const int rows = bytes.take<std::uint8_t>();
    const int columns = bytes.take<std::uint8_t>();
    cv::Mat matrix(rows + 2, columns + 2, type);
    std::memset(matrix.data, bytes.take<std::uint8_t>(), matrix.total() * matrix.elemSize());
    const QByteArray content = bytes.bytes(matrix.total() * matrix.elemSize());
    std::memcpy(matrix.data, content.constData(), std::size_t(content.size()));

    const cv::Mat picture = bytes.oneIn(2) ? matrix : matrix(cv::Rect(1, 1, columns, rows));
    if (!picture.empty() && (type == CV_8UC3 || type == CV_8UC4))
        goRound(picture);
    else
        handleText(ai_image::convertMat2Base64(picture));
}

} // namespace

/// The first byte chooses: the rest is a data text, the JPEG file in one, or a matrix.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const QString home = enterHome();
    Source bytes(data, size);
    switch (bytes.choose(4)) {
    case 0:
        handleText(QString::fromUtf8(bytes.bytes(size)));
        break;
    case 1:
        handleText("data:image/jpg;base64," + QString::fromLatin1(bytes.bytes(size).toBase64()));
        break;
    case 2:
        handleText("data:image/jpeg;base64," + QString::fromLatin1(bytes.bytes(size).toBase64()));
        break;
    default:
        handleMatrix(bytes);
        break;
    }
    return 0;
}
