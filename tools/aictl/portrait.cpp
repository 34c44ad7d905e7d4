#include "portrait.h"

#include "picture.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <QCoreApplication>
#include <QDir>
#include <QFile>

#include <algorithm>
#include <cmath>

namespace {

constexpr int portraitSide = 128;
constexpr double eyeDistance = 40;
constexpr double eyeLevel = 0.45 * portraitSide;
constexpr int frameWidth = 1920;
constexpr int frameHeight = 1080;
constexpr int smallestFace = 24;
/// Larger pictures are searched at this size; the crop is taken at full size all the same.
constexpr int searchSide = 1600;
/// Between the eyes of an average face, as a part of the width of the rectangle found.
constexpr double averageEyeDistance = 0.38;
constexpr double averageEyeLevel = 0.40;

QStringList cascadeFolders(const QString &folder)
{
    if (!folder.isEmpty())
        return {folder};
    return {QCoreApplication::applicationDirPath() + "/model", "/usr/share/opencv4/haarcascades",
            "/usr/share/opencv/haarcascades"};
}

bool loadCascade(cv::CascadeClassifier &cascade, const QStringList &folders, const QString &name)
{
    for (const auto &folder : folders) {
        const auto path = QDir(folder).filePath(name);
        if (QFile::exists(path) && cascade.load(path.toStdString()))
            return true;
    }
    return false;
}

QRect toQt(const cv::Rect &rect)
{
    return {rect.x, rect.y, rect.width, rect.height};
}

cv::Mat cutOut(cv::Mat picture, cv::Point2f left, cv::Point2f right)
{
    // Shrunk by areas first: warpAffine alone would skip pixels.
    const double shrink = eyeDistance / std::max(1.0, cv::norm(right - left));
    if (shrink < 1) {
        cv::resize(picture, picture, {}, shrink, shrink, cv::INTER_AREA);
        left *= shrink;
        right *= shrink;
    }
    const auto across = right - left;
    const auto middle = (left + right) * 0.5f;
    const auto angle = std::atan2(across.y, across.x) * 180 / CV_PI;
    auto transform = cv::getRotationMatrix2D(middle, angle, eyeDistance / std::max(1.0, cv::norm(across)));
    transform.at<double>(0, 2) += portraitSide / 2.0 - middle.x;
    transform.at<double>(1, 2) += eyeLevel - middle.y;
    cv::Mat crop;
    cv::warpAffine(picture, crop, transform, {portraitSide, portraitSide}, cv::INTER_LINEAR,
                   cv::BORDER_REPLICATE);
    return crop;
}

QByteArray jpegFile(const cv::Mat &picture)
{
    return picture::jpegOf(picture::toDataText(picture));
}

/// A file that can be sent unchanged: a JPEG in colour. The service refuses grey ones.
bool isColourJpeg(const QByteArray &content)
{
    if (!content.startsWith("\xff\xd8"))
        return false;
    const std::vector<uchar> bytes(content.begin(), content.end());
    return cv::imdecode(bytes, cv::IMREAD_UNCHANGED).channels() == 3;
}

} // namespace

PortraitMaker::PortraitMaker(const QString &cascadeFolder) : m_folders(cascadeFolders(cascadeFolder)) {}

bool PortraitMaker::loadCascades(QString *error)
{
    if (!m_faces.empty())
        return true;
    if (loadCascade(m_faces, m_folders, "haarcascade_frontalface_alt2.xml")) {
        // Without it, eyes are taken to stand where they do on average.
        loadCascade(m_eyes, m_folders, "haarcascade_eye_tree_eyeglasses.xml");
        return true;
    }
    *error = QStringLiteral("haarcascade_frontalface_alt2.xml is in none of %1; "
                            "install opencv-data or give --cascades DIR")
                 .arg(m_folders.join(", "));
    return false;
}

bool PortraitMaker::make(const QString &file, Portrait *portrait, QString *error)
{
    m_problem = None;
    const auto picture = picture::load(file);
    if (picture.empty()) {
        m_problem = NoPicture;
        *error = QStringLiteral("%1 is not a picture").arg(file);
        return false;
    }
    *portrait = {};
    if (picture.cols == portraitSide && picture.rows == portraitSide) {
        QFile original(file);
        if (original.open(QIODevice::ReadOnly))
            portrait->jpeg = original.readAll();
        if (!isColourJpeg(portrait->jpeg))
            portrait->jpeg = jpegFile(picture);
        return true;
    }
    if (!loadCascades(error)) {
        m_problem = NoCascades;
        return false;
    }

    cv::Mat grey;
    cv::cvtColor(picture, grey, cv::COLOR_BGR2GRAY);
    const auto face = findFace(grey);
    if (face.isEmpty()) {
        m_problem = NoFace;
        *error = QStringLiteral("no face found in %1").arg(file);
        return false;
    }
    const auto [left, right] = findEyes(grey, face);
    portrait->jpeg = jpegFile(cutOut(picture, left, right));
    if (picture.cols == frameWidth && picture.rows == frameHeight)
        portrait->place = face;
    return true;
}

QRect PortraitMaker::findFace(const cv::Mat &grey)
{
    const double scale = std::min(1.0, double(searchSide) / std::max(grey.cols, grey.rows));
    cv::Mat small;
    cv::resize(grey, small, {}, scale, scale, cv::INTER_AREA);
    cv::equalizeHist(small, small);
    std::vector<cv::Rect> faces;
    m_faces.detectMultiScale(small, faces, 1.1, 4, 0, {smallestFace, smallestFace});
    const auto largest = std::max_element(
        faces.begin(), faces.end(), [](const cv::Rect &a, const cv::Rect &b) { return a.area() < b.area(); });
    if (largest == faces.end())
        return {};
    const cv::Rect face(int(largest->x / scale), int(largest->y / scale), int(largest->width / scale),
                        int(largest->height / scale));
    return toQt(face & cv::Rect(0, 0, grey.cols, grey.rows));
}

std::pair<cv::Point2f, cv::Point2f> PortraitMaker::findEyes(const cv::Mat &grey, const QRect &face)
{
    const auto level = float(face.y() + averageEyeLevel * face.height());
    const auto middle = float(face.x() + face.width() / 2.0);
    const auto half = float(averageEyeDistance * face.width() / 2);
    std::pair<cv::Point2f, cv::Point2f> eyes({middle - half, level}, {middle + half, level});
    if (m_eyes.empty())
        return eyes;

    // Looked for in each half of the face's upper part, at a size at which the cascade sees them.
    const cv::Rect upper(face.x(), face.y() + face.height() / 6, face.width(), face.height() * 9 / 20);
    const double scale = 200.0 / face.width();
    const auto look = [&](cv::Rect part, cv::Point2f &eye) {
        cv::Mat enlarged;
        cv::resize(grey(part), enlarged, {}, scale, scale, scale < 1 ? cv::INTER_AREA : cv::INTER_CUBIC);
        std::vector<cv::Rect> found;
        m_eyes.detectMultiScale(enlarged, found, 1.05, 3, 0, {30, 30});
        if (found.empty())
            return false;
        const auto &best = *std::max_element(
            found.begin(), found.end(), [](const auto &a, const auto &b) { return a.area() < b.area(); });
        eye = {float(part.x + (best.x + best.width / 2.0) / scale),
               float(part.y + (best.y + best.height / 2.0) / scale)};
        return true;
    };
    auto found = eyes;
    const auto halfWidth = upper.width / 2;
    const bool both = look({upper.x, upper.y, halfWidth, upper.height}, found.first) &&
                      look({upper.x + halfWidth, upper.y, halfWidth, upper.height}, found.second);
    const auto distance = found.second.x - found.first.x;
    const bool plausible = both && distance > 0.25 * face.width() && distance < 0.6 * face.width() &&
                           std::abs(found.second.y - found.first.y) < 0.3 * distance;
    return plausible ? found : eyes;
}
