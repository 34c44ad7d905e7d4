#include "values.h"

#include "imageutil.h"
#include "messages.h"
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

QVariantMap entries(const ai::Rows<ai::Key> &keys, Source &bytes);

QVariant value(const ai::Key &key, Source &bytes)
{
    switch (key.type) {
    case ai::Type::Boolean:
        return bytes.oneIn(2);
    case ai::Type::Integer:
        return number(bytes);
    case ai::Type::Picture:
        return picture(bytes);
    case ai::Type::List: {
        QVariantList list;
        for (int i = bytes.choose(6); i > 0; --i) {
            const QVariantMap entry = entries(key.keys, bytes);
            list.append(bytes.oneIn(24) ? any(bytes) : entry);
        }
        return list;
    }
    default:
        return key.name == QLatin1String("requestID") ? values::requestID(bytes) : student(bytes);
    }
}

QVariantMap entries(const ai::Rows<ai::Key> &keys, Source &bytes)
{
    QVariantMap map;
    for (const ai::Key &key : keys)
        set(map, key.name, value(key, bytes), bytes);
    return map;
}

/// The text as part of a file name: without a way up, and short.
QString harmless(const QVariant &value, const QString &fallback)
{
    const QString text = value.toString().left(100).remove("..");
    return text.isEmpty() ? fallback : text;
}

QVariantMap ownKeys(unsigned int code, Source &bytes)
{
    const ai::CommandRow *row = ai::find(ai::Command{code});
    switch (ai::Command{code}) {
    case ai::Command::Initialise: {
        // No recogniser: those of this program are there already.
        QVariantMap map;
        for (const ai::Key &key : row->request) {
            if (key.type != ai::Type::Boolean || key.name == QLatin1String("enableEmotion"))
                set(map, key.name, value(key, bytes), bytes);
        }
        return map;
    }
    case ai::Command::FetchFaces:
        return bytes.oneIn(2) ? entries(row->request, bytes) : QVariantMap();
    default:
        return entries(row && !row->request.empty() ? row->request : ai::stopFollowingKeys, bytes);
    }
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
    if (code == ai::code(ai::Command::StartRecording))
        map["recordPath"] = folder + '/' + harmless(map["recordPath"], "videos");
    if (code == ai::code(ai::Command::Initialise) && map.contains("identify"))
        map["identify"] = harmless(map["identify"], "room");
    return map;
}

QString values::requestID(Source &bytes)
{
    return bytes.oneIn(8) ? student(bytes) : QString::number(bytes.choose(3));
}
