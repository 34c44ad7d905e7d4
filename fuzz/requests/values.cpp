#include "values.h"

#include "imageutil.h"
#include "wire.h"

#include <cmath>
#include <limits>

namespace {

constexpr int faceSide = 128;

QString student(Source &bytes)
{
    const int choice = bytes.choose(16);
    if (choice < 6)
        return QString(QChar('a' + choice));
    if (choice == 6)
        return QString(20000, 'x');
    if (choice == 7)
        return QString::fromUtf8(bytes.bytes(std::size_t(bytes.choose(32))));
    if (choice == 8)
        return {};
    return "a";
}

int number(Source &bytes)
{
    const int choice = bytes.choose(8);
    if (choice == 0)
        return bytes.take<std::int32_t>();
    if (choice == 1)
        return bytes.oneIn(2) ? std::numeric_limits<int>::max() : std::numeric_limits<int>::min();
    return bytes.take<std::uint16_t>() % 2000 - 50;
}

/// A data text with a face of the right size and one of eight brightnesses.
const QString &faceText(int brightness)
{
    static const std::vector<QString> texts = [] {
        std::vector<QString> list;
        for (int grey = 10; grey < 250; grey += 30)
            list.push_back(
                ai_image::convertMat2Base64(cv::Mat(faceSide, faceSide, CV_8UC3, cv::Scalar::all(grey))));
        return list;
    }();
    return texts[std::size_t(brightness) % texts.size()];
}

QString picture(Source &bytes)
{
    switch (bytes.choose(12)) {
    case 0:
        return ai_image::convertMat2Base64(
            cv::Mat(1 + bytes.choose(200), 1 + bytes.choose(200), CV_8UC3, cv::Scalar::all(99)));
    case 1:
        return "data:image/jpeg;base64," + QString::fromLatin1(bytes.bytes(64).toBase64());
    case 2:
        return QString::fromUtf8(bytes.bytes(64));
    case 3: {
        // A file that is damaged somewhere, or ends too early.
        QString text = faceText(bytes.choose(8));
        const int place = bytes.take<std::uint16_t>() % text.size();
        if (bytes.oneIn(2))
            return text.left(place);
        text[place] = QChar(bytes.choose(128));
        return text;
    }
    default:
        return faceText(bytes.choose(8));
    }
}

QVariant any(Source &bytes, int depth = 0)
{
    switch (bytes.choose(depth > 8 ? 8 : 11)) {
    case 0:
        return {};
    case 1:
        return bytes.oneIn(2);
    case 2:
        return bytes.take<double>();
    case 3:
        return bytes.take<qint64>();
    case 4:
        return bytes.bytes(std::size_t(bytes.choose(64)));
    case 5:
        return wire::decodePayload(bytes.bytes(bytes.take<std::uint8_t>()));
    case 6:
        return student(bytes);
    case 7:
        return picture(bytes);
    case 8:
        return number(bytes);
    case 9: {
        QVariantList list;
        for (int i = bytes.choose(5); i > 0; --i)
            list.append(any(bytes, depth + 1));
        return list;
    }
    default: {
        QVariantMap map;
        for (int i = bytes.choose(5); i > 0; --i)
            map.insert(student(bytes), any(bytes, depth + 1));
        return map;
    }
    }
}

/// Sets the key to the value that belongs there, in most cases.
void set(QVariantMap &map, const char *key, const QVariant &value, Source &bytes)
{
    if (bytes.oneIn(24))
        return;
    map.insert(QLatin1String(key), bytes.oneIn(24) ? any(bytes) : value);
}

void setRect(QVariantMap &map, Source &bytes)
{
    for (const char *key : {"x", "y", "width", "height"})
        set(map, key, number(bytes), bytes);
}

/// A list of maps that each name a student, with his face and place if they are wanted.
QVariantList students(Source &bytes, bool withFace)
{
    QVariantList list;
    for (int i = bytes.choose(6); i > 0; --i) {
        QVariantMap entry;
        set(entry, "stuID", student(bytes), bytes);
        if (withFace) {
            set(entry, "faceImg", picture(bytes), bytes);
            setRect(entry, bytes);
        }
        list.append(bytes.oneIn(24) ? any(bytes) : entry);
    }
    return list;
}

/// The text as part of a file name: without a way up, and short.
QString harmless(const QVariant &value, const QString &fallback)
{
    const QString text = value.toString().left(100).remove("..");
    return text.isEmpty() ? fallback : text;
}

QVariantMap ownKeys(unsigned int code, Source &bytes)
{
    QVariantMap map;
    switch (code) {
    case 1001:
        set(map, "identify", student(bytes), bytes);
        set(map, "enableEmotion", bytes.oneIn(2), bytes);
        break;
    case 1020:
    case 1022:
        set(map, "galleries", students(bytes, true), bytes);
        break;
    case 1021:
        if (bytes.oneIn(2))
            set(map, "stuID", student(bytes), bytes);
        break;
    case 1023:
        set(map, "oldStuID", student(bytes), bytes);
        set(map, "faceImageBase64", picture(bytes), bytes);
        setRect(map, bytes);
        break;
    case 1024:
        set(map, "oldStuID", student(bytes), bytes);
        set(map, "newStuID", student(bytes), bytes);
        break;
    case 1036:
    case 1037:
        set(map, "stuList", students(bytes, false), bytes);
        break;
    case 1039:
        set(map, "recordPath", student(bytes), bytes);
        break;
    default:
        set(map, "stuID", student(bytes), bytes);
        set(map, "requestID", values::requestID(bytes), bytes);
        break;
    }
    return map;
}

} // namespace

QVariantMap values::parameters(unsigned int code, Source &bytes, const QString &folder)
{
    QVariantMap map;
    switch (bytes.choose(16)) {
    case 0:
        map = any(bytes).toMap();
        break;
    case 1:
        map = wire::decodePayload(bytes.bytes(bytes.take<std::uint16_t>() % 2048)).toMap();
        break;
    default:
        map = ownKeys(code, bytes);
        break;
    }
    // Both are part of the path of a recording. Without one, the recorder would pick a disk of the machine.
    if (code == 1039)
        map["recordPath"] = folder + '/' + harmless(map["recordPath"], "videos");
    if (code == 1001 && map.contains("identify"))
        map["identify"] = harmless(map["identify"], "room");
    return map;
}

QString values::requestID(Source &bytes)
{
    return bytes.oneIn(8) ? student(bytes) : QString::number(bytes.choose(3));
}
