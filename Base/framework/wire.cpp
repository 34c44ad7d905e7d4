#include "wire.h"

#include <QBitArray>
#include <QDateTime>
#include <QIODevice>
#include <QJsonValue>
#include <QRegExp>
#include <QStringList>
#include <QtEndian>
#include <QTimeZone>

#include <algorithm>

namespace wire {

namespace {

constexpr quint32 nullLength = 0xffffffff;
constexpr int largestReserve = 64 * 1024 * 1024; // bytes
constexpr int longestAuthority = 1024;           // bytes of the host of a QUrl, and of what stands around it
constexpr int largestPatterns = 1000; // characters of all QRegExp patterns of a payload, repetitions expanded

/// The content of a variant of type T, for writing in place.
template <class T>
T &content(QVariant &value)
{
    return *static_cast<T *>(value.data());
}

/// At least the size of a pattern with its counted repetitions written out, and some for the expression
/// itself.
qint64 expandedSize(const QString &pattern)
{
    constexpr qint64 enough = largestPatterns + 1;
    qint64 size = pattern.size() + 16;
    for (int brace = pattern.indexOf('{'); brace >= 0; brace = pattern.indexOf('{', brace + 1)) {
        qint64 number = 0;
        qint64 repetitions = 1;
        for (int i = brace + 1; i < pattern.size() && pattern[i] != '}'; ++i) {
            number = pattern[i].isDigit() ? number * 10 + pattern[i].digitValue() : 0;
            repetitions = std::min(std::max(repetitions, number), enough);
            number = std::min(number, enough);
        }
        size = std::min(size * repetitions, enough);
    }
    return size;
}

bool isValueType(quint32 type)
{
    switch (type) {
    case QMetaType::VoidStar:
    case QMetaType::QObjectStar:
    case QMetaType::QModelIndex:
    case QMetaType::QPersistentModelIndex:
    case QMetaType::Void:
        return false;
    default:
        return type <= QMetaType::LastCoreType;
    }
}

/// Writing a time in a zone that the system does not know crashes in Qt.
bool zoneIsKnown(const QDateTime &time)
{
    return time.timeSpec() != Qt::TimeZone || time.timeZone().isValid();
}

/// Qt writes a host that is not in ASCII in its encoded form, at a cost that grows with the square of its
/// length.
bool hostIsShort(const QByteArray &url)
{
    const int slashes = url.indexOf("//");
    if (slashes > 3 && url[slashes - 1] != ':')
        return true; // not behind a scheme, so no host follows
    const auto host = url.cbegin() + slashes + 2;
    const auto end = std::find_if(host, url.cend(), [](char c) { return c == '/' || c == '?' || c == '#'; });
    return slashes < 0 || end - host <= longestAuthority;
}

/// Whether a length follows the byte that tells the kind of a JSON value.
bool jsonHasLength(quint8 kind)
{
    return kind == QJsonValue::String || kind == QJsonValue::Array || kind == QJsonValue::Object;
}

/// Reads one payload. Containers are walked here; a single value is left to Qt once the lengths in it are
/// known to lie within the bytes.
class PayloadReader
{
public:
    explicit PayloadReader(const QByteArray &payload) : m_payload(payload), m_stream(payload)
    {
        m_stream.setVersion(streamVersion);
    }

    bool readVariant(QVariant &value, int nesting = 0);

private:
    qint64 position() const { return m_stream.device()->pos(); }
    qint64 remaining() const { return m_payload.size() - position(); }
    bool ok() const { return m_stream.status() == QDataStream::Ok; }

    template <class Number>
    Number numberAt(qint64 offset) const
    {
        return qFromBigEndian<Number>(m_payload.constData() + position() + offset);
    }

    bool readCount(quint32 &count, int smallestItem);
    bool readText(QString &text);
    bool readBytes(QByteArray &bytes);
    template <class Container>
    bool readEntries(Container &entries, int nesting);
    bool readList(QVariantList &list, int nesting);
    bool readTexts(QStringList &texts);
    bool readByteArrays(QByteArrayList &arrays);
    bool readSingle(quint32 type, QVariant &value);

    bool fits(qint64 offset, int bitsPerUnit = 8) const;
    QString textAt(qint64 offset) const;
    bool urlIsHarmless() const;
    bool cborIsHarmless() const;
    bool patternIsHarmless();
    bool zoneIsHarmless() const;

    QByteArray m_payload;
    QDataStream m_stream;
    qint64 m_patternBudget = largestPatterns;
};

bool PayloadReader::readVariant(QVariant &value, int nesting)
{
    if (nesting > maximumNesting)
        return false;
    quint32 type = 0;
    qint8 isNull = 0;
    m_stream >> type >> isNull;
    if (!ok())
        return false;
    if (type == QMetaType::UnknownType)
        return true;
    if (!isValueType(type))
        return false;

    // The two constructors differ in the null flag that the new value gets.
    value = isNull ? QVariant(static_cast<QVariant::Type>(type)) : QVariant(static_cast<int>(type), nullptr);
    switch (type) {
    case QMetaType::QVariantMap:
        return readEntries(content<QVariantMap>(value), nesting);
    case QMetaType::QVariantHash:
        return readEntries(content<QVariantHash>(value), nesting);
    case QMetaType::QVariantList:
        return readList(content<QVariantList>(value), nesting);
    case QMetaType::QVariant:
        return readVariant(content<QVariant>(value), nesting + 1);
    case QMetaType::QStringList:
        return readTexts(content<QStringList>(value));
    case QMetaType::QByteArrayList:
        return readByteArrays(content<QByteArrayList>(value));
    default:
        return readSingle(type, value);
    }
}

/// A count of items of which each takes at least smallestItem bytes.
bool PayloadReader::readCount(quint32 &count, int smallestItem)
{
    m_stream >> count;
    return ok() && count <= remaining() / smallestItem;
}

bool PayloadReader::readText(QString &text)
{
    if (!fits(0))
        return false;
    m_stream >> text;
    return ok();
}

bool PayloadReader::readBytes(QByteArray &bytes)
{
    if (!fits(0))
        return false;
    m_stream >> bytes;
    return ok();
}

template <class Container>
bool PayloadReader::readEntries(Container &entries, int nesting)
{
    quint32 count = 0;
    if (!readCount(count, 9))
        return false;
    for (; count > 0; --count) {
        QString key;
        QVariant value;
        if (!readText(key) || !readVariant(value, nesting + 1))
            return false;
        entries.insert(key, value);
    }
    return true;
}

bool PayloadReader::readList(QVariantList &list, int nesting)
{
    quint32 count = 0;
    if (!readCount(count, 5))
        return false;
    for (; count > 0; --count) {
        list.append(QVariant());
        if (!readVariant(list.last(), nesting + 1))
            return false;
    }
    return true;
}

bool PayloadReader::readTexts(QStringList &texts)
{
    quint32 count = 0;
    if (!readCount(count, 4))
        return false;
    for (; count > 0; --count) {
        texts.append(QString());
        if (!readText(texts.last()))
            return false;
    }
    return true;
}

bool PayloadReader::readByteArrays(QByteArrayList &arrays)
{
    quint32 count = 0;
    if (!readCount(count, 4))
        return false;
    for (; count > 0; --count) {
        arrays.append(QByteArray());
        if (!readBytes(arrays.last()))
            return false;
    }
    return true;
}

/// Qt compiles a pattern each time that it reads or copies one, and nested repetitions of a few characters
/// can cost hours and all memory.
bool PayloadReader::patternIsHarmless()
{
    if (!fits(0))
        return false;
    m_patternBudget -= expandedSize(textAt(0));
    return m_patternBudget >= 0;
}

bool PayloadReader::readSingle(quint32 type, QVariant &value)
{
    bool harmless = true;
    switch (type) {
    case QMetaType::QString:
    case QMetaType::QByteArray:
    case QMetaType::QLocale:
    case QMetaType::QRegularExpression:
    case QMetaType::QJsonObject:
    case QMetaType::QJsonArray:
    case QMetaType::QJsonDocument:
        harmless = fits(0);
        break;
    case QMetaType::QCborValue:
    case QMetaType::QCborArray:
    case QMetaType::QCborMap:
        harmless = cborIsHarmless();
        break;
    case QMetaType::QJsonValue: // a byte for the kind of value, then for some kinds a length
        harmless = fits(1) || remaining() < 1 || !jsonHasLength(numberAt<quint8>(0));
        break;
    case QMetaType::QBitArray:
        harmless = fits(0, 1);
        break;
    case QMetaType::QUrl:
        harmless = urlIsHarmless();
        break;
    case QMetaType::QRegExp:
        harmless = patternIsHarmless();
        break;
    case QMetaType::QDateTime:
        harmless = zoneIsHarmless();
        break;
    default: // of a fixed size
        break;
    }
    if (!harmless || !QMetaType::load(m_stream, static_cast<int>(type), value.data()) || !ok())
        return false;
    return type != QMetaType::QDateTime || zoneIsKnown(content<QDateTime>(value));
}

/// Whether the length at an offset from here, and as many units as it tells behind it, lie within the bytes.
bool PayloadReader::fits(qint64 offset, int bitsPerUnit) const
{
    const qint64 behind = remaining() - offset - 4;
    if (behind < 0)
        return false;
    const auto length = numberAt<quint32>(offset);
    return (length == nullLength && bitsPerUnit == 8) || (qint64(length) * bitsPerUnit + 7) / 8 <= behind;
}

/// The text at an offset from here, which is known to fit.
QString PayloadReader::textAt(qint64 offset) const
{
    const char *const bytes = m_payload.constData() + position() + offset;
    QDataStream stream(QByteArray::fromRawData(bytes, static_cast<int>(remaining() - offset)));
    stream.setVersion(streamVersion);
    QString text;
    stream >> text;
    return text;
}

/// A date and time in a named zone makes Qt open a file of that name below the system's zone folder, so the
/// name must be one that stays in there.
bool PayloadReader::zoneIsHarmless() const
{
    constexpr qint64 timeSpec = 8 + 4;
    constexpr qint64 name = timeSpec + 1;
    if (remaining() <= timeSpec || numberAt<quint8>(timeSpec) != Qt::TimeZone)
        return true; // of a fixed size
    if (!fits(name))
        return false;
    const QString zone = textAt(name);
    return !zone.contains("..") && !zone.startsWith('/');
}

bool PayloadReader::urlIsHarmless() const
{
    if (!fits(0))
        return false;
    const auto length = numberAt<quint32>(0);
    return length == nullLength || hostIsShort(QByteArray::fromRawData(m_payload.constData() + position() + 4,
                                                                       static_cast<int>(length)));
}

/// CBOR has lengths and counts of its own, which Qt makes room for before it looks for the bytes, and URLs.
bool PayloadReader::cborIsHarmless() const
{
    if (!fits(0))
        return false;
    const auto length = numberAt<quint32>(0);
    if (length == nullLength)
        return true;

    // Items stand one behind the other, whether in an array or not. Each begins with a byte for its kind and
    // for its number, or for the number of bytes that hold it.
    constexpr int bytes = 2, text = 3, array = 4, map = 5, tag = 6; // kinds
    constexpr int oneByte = 24, eightBytes = 27, endless = 31;      // numbers that tell of others
    constexpr int urlTag = 32;
    const qint64 end = 4 + qint64(length);
    bool isUrl = false;
    for (qint64 at = 4; at < end;) {
        const auto head = numberAt<quint8>(at++);
        const int kind = head >> 5;
        quint64 number = head & 31;
        const bool isEndless = number == endless;
        if (number >= oneByte && number <= eightBytes) {
            const int size = 1 << (number - oneByte);
            if (size > end - at)
                return false;
            number = 0;
            for (const qint64 behind = at + size; at < behind; ++at)
                number = number << 8 | numberAt<quint8>(at);
        }
        const auto left = static_cast<quint64>(end - at);
        if (kind == array || kind == map) {
            if (!isEndless && number > (kind == map ? left / 2 : left))
                return false;
        } else if (kind == bytes || kind == text) {
            if (isEndless ? isUrl : number > left)
                return false;
            const int size = isEndless ? 0 : static_cast<int>(number);
            if (isUrl && !hostIsShort(QByteArray::fromRawData(m_payload.constData() + position() + at, size)))
                return false;
            at += size;
        }
        isUrl = kind == tag && number == urlTag;
    }
    return true;
}

/// A QByteArray, length field and bytes. When fewer bytes are there than the field claims, all of them are
/// taken and the result is empty.
QByteArray takeArray(QIODevice &device)
{
    const QByteArray field = device.read(lengthFieldBytes);
    if (field.size() < lengthFieldBytes)
        return {};
    const auto length = qFromBigEndian<quint32>(field.constData());
    if (length == nullLength)
        return {};
    if (length > device.bytesAvailable()) {
        device.skip(device.bytesAvailable());
        return {};
    }
    return device.read(length);
}

/// About the bytes of a value in a stream. With room for them from the start, a payload with a picture in it
/// isn't copied once more while it grows.
qint64 sizeInStream(const QVariant &value)
{
    constexpr qint64 plainValue = 16; // the type, and a number
    qint64 size = plainValue;
    switch (static_cast<QMetaType::Type>(value.type())) {
    case QMetaType::QString:
        size += 2 * qint64(value.toString().size());
        break;
    case QMetaType::QVariantMap: {
        const QVariantMap map = value.toMap();
        for (auto entry = map.cbegin(); entry != map.cend(); ++entry)
            size += plainValue + 2 * qint64(entry.key().size()) + sizeInStream(entry.value());
        break;
    }
    case QMetaType::QVariantList: {
        const QVariantList list = value.toList();
        for (const QVariant &item : list)
            size += sizeInStream(item);
        break;
    }
    default:
        break;
    }
    return size;
}

} // namespace

QByteArray encodePayload(const QVariant &value)
{
    QByteArray payload;
    payload.reserve(static_cast<int>(std::min<qint64>(sizeInStream(value), largestReserve)));
    QDataStream stream(&payload, QIODevice::WriteOnly);
    stream.setVersion(streamVersion);
    stream << value;
    return payload;
}

QByteArray encodeFrame(const QVariant &value)
{
    const QByteArray payload = encodePayload(value);
    QByteArray frame;
    QDataStream stream(&frame, QIODevice::WriteOnly);
    stream.setVersion(streamVersion);
    stream << static_cast<qint32>(payload.size()) << payload;
    return frame;
}

QVariant decodePayload(const QByteArray &payload)
{
    QVariant value;
    return PayloadReader(payload).readVariant(value) ? value : QVariant();
}

bool takePayload(QIODevice &device, std::optional<qint32> &length, QByteArray &payload)
{
    if (!length)
        length = qFromBigEndian<qint32>(device.read(lengthFieldBytes).constData());
    const qint64 available = device.bytesAvailable();
    if (available < *length || available == 0)
        return false;
    payload = takeArray(device);
    length.reset();
    return true;
}

} // namespace wire
