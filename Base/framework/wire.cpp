#include "wire.h"

#include <QBitArray>
#include <QDateTime>
#include <QIODevice>
#include <QSet>
#include <QStringList>
#include <QtEndian>

#include <algorithm>

namespace wire {

namespace {

constexpr quint32 nullLength = 0xffffffff;
constexpr int largestReserve = 64 * 1024 * 1024; // bytes

/// The content of a variant of type T, for writing in place.
template <class T>
T &content(QVariant &value)
{
    return *static_cast<T *>(value.data());
}

/// Types whose number of bytes in a stream is known beforehand, so that Qt reads them without harm.
bool hasFixedSize(quint32 type)
{
    static const QSet<quint32> types{
        QMetaType::Bool,     QMetaType::Char,      QMetaType::SChar,  QMetaType::UChar,   QMetaType::Short,
        QMetaType::UShort,   QMetaType::Int,       QMetaType::UInt,   QMetaType::Long,    QMetaType::ULong,
        QMetaType::LongLong, QMetaType::ULongLong, QMetaType::Float,  QMetaType::Double,  QMetaType::QChar,
        QMetaType::QDate,    QMetaType::QTime,     QMetaType::QPoint, QMetaType::QPointF, QMetaType::QSize,
        QMetaType::QSizeF,   QMetaType::QLine,     QMetaType::QLineF, QMetaType::QRect,   QMetaType::QRectF,
        QMetaType::QUuid,    QMetaType::Nullptr};
    return types.contains(type);
}

/// Reads one payload: walks the containers itself and leaves a single value to Qt once its length is known to
/// lie within the bytes. Functions that read are false when the payload doesn't parse.
class PayloadReader
{
public:
    explicit PayloadReader(const QByteArray &payload) : m_payload(payload), m_stream(payload)
    {
        m_stream.setVersion(streamVersion);
    }

    bool readVariant(QVariant &value, int nesting = 0);
    /// Why the payload doesn't parse.
    QString refusal() const { return m_refusal; }

private:
    bool readContent(quint32 type, QVariant &value, int nesting);
    template <class Entries>
    bool readEntries(Entries &entries, int nesting);
    bool readList(QVariantList &list, int nesting);
    template <class Texts>
    bool readTexts(Texts &texts);
    template <class Text>
    bool readText(Text &text, qint64 bitsPerUnit = 8);
    bool readDateTime(QDateTime &time);
    bool readCount(quint32 &count, int smallestItem);

    const char *here() const { return m_payload.constData() + m_stream.device()->pos(); }
    qint64 remaining() const { return m_payload.size() - m_stream.device()->pos(); }
    bool isWhole();
    bool refuse(const QString &reason);

    QByteArray m_payload;
    QDataStream m_stream;
    QString m_refusal;
};

bool PayloadReader::refuse(const QString &reason)
{
    m_refusal = reason;
    return false;
}

/// Whether there were bytes enough for what was read last, and whether they can mean it.
bool PayloadReader::isWhole()
{
    return m_stream.status() == QDataStream::Ok || refuse(QStringLiteral("a value is cut off or damaged"));
}

bool PayloadReader::readVariant(QVariant &value, int nesting)
{
    if (nesting > maximumNesting)
        return refuse(QStringLiteral("nested deeper than %1").arg(maximumNesting));
    quint32 type = 0;
    qint8 isNull = 0;
    m_stream >> type >> isNull;
    if (!isWhole())
        return false;
    if (type == QMetaType::UnknownType)
        return true;
    if (type > QMetaType::LastCoreType || type == QMetaType::Void)
        return refuse(QStringLiteral("type %1 is not known").arg(type));
    // The two constructors differ in the null flag that the new value gets.
    value = isNull ? QVariant(static_cast<QVariant::Type>(type)) : QVariant(static_cast<int>(type), nullptr);
    return readContent(type, value, nesting);
}

bool PayloadReader::readContent(quint32 type, QVariant &value, int nesting)
{
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
        return readTexts(content<QByteArrayList>(value));
    case QMetaType::QString:
        return readText(content<QString>(value));
    case QMetaType::QByteArray:
        return readText(content<QByteArray>(value));
    case QMetaType::QBitArray:
        return readText(content<QBitArray>(value), 1);
    case QMetaType::QDateTime:
        return readDateTime(content<QDateTime>(value));
    default:
        if (!hasFixedSize(type))
            return refuse(QStringLiteral("type %1 (%2) is not taken").arg(type).arg(value.typeName()));
        QMetaType::load(m_stream, static_cast<int>(type), value.data());
        return isWhole();
    }
}

template <class Entries>
bool PayloadReader::readEntries(Entries &entries, int nesting)
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

/// A list of texts or of bytes.
template <class Texts>
bool PayloadReader::readTexts(Texts &texts)
{
    quint32 count = 0;
    if (!readCount(count, 4))
        return false;
    for (; count > 0; --count) {
        texts.append(typename Texts::value_type());
        if (!readText(texts.last()))
            return false;
    }
    return true;
}

/// A text, bytes or bits: a length and as many units. Qt makes room before it looks for them.
template <class Text>
bool PayloadReader::readText(Text &text, qint64 bitsPerUnit)
{
    if (remaining() >= lengthFieldBytes) {
        const auto length = qFromBigEndian<quint32>(here());
        const bool isNull = length == nullLength && bitsPerUnit == 8;
        if (!isNull && (length * bitsPerUnit + 7) / 8 > remaining() - lengthFieldBytes)
            return refuse(QStringLiteral("length %1 goes beyond the frame").arg(length));
    }
    m_stream >> text;
    return isWhole();
}

/// Qt opens a file for a time in a named zone.
bool PayloadReader::readDateTime(QDateTime &time)
{
    constexpr int timeSpec = 8 + 4; // behind date and time
    if (remaining() > timeSpec && here()[timeSpec] == Qt::TimeZone)
        return refuse(QStringLiteral("a time in a zone is not taken"));
    m_stream >> time;
    return isWhole();
}

/// A count of items of which each takes at least smallestItem bytes.
bool PayloadReader::readCount(quint32 &count, int smallestItem)
{
    m_stream >> count;
    if (isWhole() && count > remaining() / smallestItem)
        return refuse(QStringLiteral("count %1 goes beyond the frame").arg(count));
    return isWhole();
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

namespace {

QByteArray frameOf(const QByteArray &payload, qint64 firstLength)
{
    QByteArray frame;
    QDataStream stream(&frame, QIODevice::WriteOnly);
    stream.setVersion(streamVersion);
    stream << static_cast<qint32>(firstLength) << payload;
    return frame;
}

} // namespace

QByteArray encodeFrame(const QVariant &value)
{
    const QByteArray payload = encodePayload(value);
    return frameOf(payload, payload.size());
}

QByteArray encodeRequest(const QVariant &value)
{
    const QByteArray payload = encodePayload(value);
    return frameOf(payload, payload.size() + lengthFieldBytes);
}

QVariant decodePayload(const QByteArray &payload, QString *refusal)
{
    QVariant value;
    PayloadReader reader(payload);
    const bool parses = reader.readVariant(value);
    if (refusal)
        *refusal = reader.refusal();
    return parses ? value : QVariant();
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
