#include "picture.h"

#include <opencv2/imgcodecs.hpp>

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

namespace picture {

namespace {

const QString prefix = QStringLiteral("data:image/jpg;base64,");
const QString otherPrefix = QStringLiteral("data:image/jpeg;base64,");

cv::Mat decode(const QByteArray &file)
{
    if (file.isEmpty())
        return {};
    try {
        const std::vector<uchar> bytes(file.begin(), file.end());
        return cv::imdecode(bytes, cv::IMREAD_COLOR);
    } catch (const cv::Exception &) {
        return {};
    }
}

QByteArray encode(const cv::Mat &picture)
{
    std::vector<uchar> bytes;
    cv::imencode(".jpg", picture, bytes);
    return {reinterpret_cast<const char *>(bytes.data()), int(bytes.size())};
}

} // namespace

QString toDataText(const QByteArray &jpegFile)
{
    return prefix + QString::fromLatin1(jpegFile.toBase64());
}

QString toDataText(const cv::Mat &picture)
{
    return toDataText(encode(picture));
}

QByteArray jpegOf(const QString &dataText)
{
    const auto comma = dataText.indexOf(',') + 1;
    const auto head = dataText.leftRef(comma);
    if (head != prefix && head != otherPrefix)
        return {};
    return QByteArray::fromBase64(dataText.midRef(comma).toLatin1());
}

cv::Mat fromDataText(const QString &dataText)
{
    return decode(jpegOf(dataText));
}

cv::Mat load(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? decode(file.readAll()) : cv::Mat();
}

bool save(const QString &path, const QByteArray &content, QString *error)
{
    QSaveFile file(path);
    if (QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly) &&
        file.write(content) == content.size() && file.commit())
        return true;
    *error = QStringLiteral("cannot write %1: %2").arg(path, file.errorString());
    return false;
}

bool save(const QString &path, const cv::Mat &picture, QString *error)
{
    return save(path, encode(picture), error);
}

QVariant withoutPictures(const QVariant &value)
{
    switch (int(value.type())) {
    case QMetaType::QString: {
        const auto text = value.toString();
        return text.startsWith(prefix) || text.startsWith(otherPrefix)
                   ? QStringLiteral("(JPEG, %1 bytes)").arg(jpegOf(text).size())
                   : text;
    }
    case QMetaType::QVariantMap: {
        auto map = value.toMap();
        for (auto &entry : map)
            entry = withoutPictures(entry);
        return map;
    }
    case QMetaType::QVariantList: {
        auto list = value.toList();
        for (auto &entry : list)
            entry = withoutPictures(entry);
        return list;
    }
    default:
        return value;
    }
}

} // namespace picture
