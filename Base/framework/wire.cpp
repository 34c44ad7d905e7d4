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

/// The content of a variant of type T, in place.
template <class T>
T &content(QVariant &value)
{
    return *static_cast<T *>(value.data());
}

template <class T>
const T &content(const QVariant &value)
{
    return *static_cast<const T *>(value.constData());
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
    explicit PayloadReader(const QByteArray &payload)
        : m_here(payload.constData()), m_remaining(payload.size())
    {
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
    bool readText(QString &text);
    bool readText(QByteArray &text);
    bool readBits(QBitArray &bits);
    bool readDateTime(QDateTime &time);
    bool readCount(quint32 &count, int smallestItem);
    template <class Number>
    bool readNumber(Number &number);
    template <class Read>
    bool readByQt(const Read &read);

    bool lengthIsThere(qint64 bitsPerUnit);
    void skip(int bytes);
    bool refuse(const QString &reason);
    bool refuseDamaged() { return refuse(QStringLiteral("a value is cut off or damaged")); }

    const char *m_here; ///< of the payload, which the caller keeps
    int m_remaining;    ///< bytes
    QString m_refusal;
};

bool PayloadReader::refuse(const QString &reason)
{
    m_refusal = reason;
    return false;
}

void PayloadReader::skip(int bytes)
{
    m_here += bytes;
    m_remaining -= bytes;
}

template <class Number>
bool PayloadReader::readNumber(Number &number)
{
    if (m_remaining < int(sizeof number))
        return refuseDamaged();
    number = qFromBigEndian<Number>(m_here);
    skip(sizeof number);
    return true;
}

/// Lets Qt read what is rare, once it is known that this does no harm. False when bytes lack or mean nothing.
template <class Read>
bool PayloadReader::readByQt(const Read &read)
{
    QDataStream stream(QByteArray::fromRawData(m_here, m_remaining));
    stream.setVersion(streamVersion);
    read(stream);
    skip(static_cast<int>(stream.device()->pos()));
    return stream.status() == QDataStream::Ok || refuseDamaged();
}

bool PayloadReader::readVariant(QVariant &value, int nesting)
{
    if (nesting > maximumNesting)
        return refuse(QStringLiteral("nested deeper than %1").arg(maximumNesting));
    quint32 type = 0;
    qint8 isNull = 0;
    if (!readNumber(type) || !readNumber(isNull))
        return false;
    if (type == QMetaType::UnknownType) {
        value = QVariant();
        return true;
    }
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
        return readBits(content<QBitArray>(value));
    case QMetaType::QDateTime:
        return readDateTime(content<QDateTime>(value));
    case QMetaType::Int:
        return readNumber(content<qint32>(value));
    case QMetaType::UInt:
        return readNumber(content<quint32>(value));
    case QMetaType::LongLong:
        return readNumber(content<qint64>(value));
    default:
        if (!hasFixedSize(type))
            return refuse(QStringLiteral("type %1 (%2) is not taken").arg(type).arg(value.typeName()));
        return readByQt(
            [&](QDataStream &stream) { QMetaType::load(stream, static_cast<int>(type), value.data()); });
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
        if (!readText(key) || !readVariant(entries[key], nesting + 1))
            return false;
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
bool PayloadReader::lengthIsThere(qint64 bitsPerUnit)
{
    if (m_remaining < lengthFieldBytes)
        return refuseDamaged();
    const auto length = qFromBigEndian<quint32>(m_here);
    const bool isNull = length == nullLength && bitsPerUnit == 8;
    if (!isNull && (length * bitsPerUnit + 7) / 8 > m_remaining - lengthFieldBytes)
        return refuse(QStringLiteral("length %1 goes beyond the frame").arg(length));
    return true;
}

bool PayloadReader::readText(QString &text)
{
    quint32 length = 0;
    if (!lengthIsThere(8) || !readNumber(length))
        return false;
    if (length == nullLength) {
        text = QString();
        return true;
    }
    if (length % sizeof(QChar) != 0)
        return refuseDamaged();
    text = QString(int(length / sizeof(QChar)), Qt::Uninitialized);
    qFromBigEndian<quint16>(m_here, text.size(), text.data());
    skip(int(length));
    return true;
}

bool PayloadReader::readText(QByteArray &text)
{
    return lengthIsThere(8) && readByQt([&](QDataStream &stream) { stream >> text; });
}

bool PayloadReader::readBits(QBitArray &bits)
{
    return lengthIsThere(1) && readByQt([&](QDataStream &stream) { stream >> bits; });
}

/// Qt opens a file for a time in a named zone.
bool PayloadReader::readDateTime(QDateTime &time)
{
    constexpr int timeSpec = 8 + 4; // behind date and time
    if (m_remaining > timeSpec && m_here[timeSpec] == Qt::TimeZone)
        return refuse(QStringLiteral("a time in a zone is not taken"));
    return readByQt([&](QDataStream &stream) { stream >> time; });
}

/// A count of items of which each takes at least smallestItem bytes.
bool PayloadReader::readCount(quint32 &count, int smallestItem)
{
    if (!readNumber(count))
        return false;
    if (count > quint32(m_remaining / smallestItem))
        return refuse(QStringLiteral("count %1 goes beyond the frame").arg(count));
    return true;
}

/// A QByteArray, length field and bytes. When fewer bytes are there than the field claims, all of them are
/// taken and the result is empty.
QByteArray takeArray(QIODevice &device)
{
    char field[lengthFieldBytes];
    if (device.read(field, lengthFieldBytes) < lengthFieldBytes)
        return {};
    const auto length = qFromBigEndian<quint32>(field);
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
        const auto &map = content<QVariantMap>(value);
        for (auto entry = map.cbegin(); entry != map.cend(); ++entry)
            size += plainValue + 2 * qint64(entry.key().size()) + sizeInStream(entry.value());
        break;
    }
    case QMetaType::QVariantList: {
        for (const QVariant &item : content<QVariantList>(value))
            size += sizeInStream(item);
        break;
    }
    default:
        break;
    }
    return size;
}

/// Writes one payload, byte for byte as a QDataStream writes a QVariant: itself what most messages consist
/// of, since a stream goes through its device for each number, and the rest by Qt.
class PayloadWriter
{
public:
    explicit PayloadWriter(qint64 expectedSize)
    {
        m_payload.reserve(static_cast<int>(std::min<qint64>(expectedSize, largestReserve)));
    }

    void write(const QVariant &value);
    QByteArray payload() const { return m_payload; }

private:
    void writeContent(const QVariant &value);
    void writeText(const QString &text);
    template <class Number>
    void writeNumber(Number number)
    {
        char bytes[sizeof number];
        qToBigEndian(number, bytes);
        m_payload.append(bytes, sizeof bytes);
    }

    QByteArray m_payload;
};

void PayloadWriter::write(const QVariant &value)
{
    switch (value.userType()) {
    case QMetaType::UnknownType:
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::QString:
    case QMetaType::QVariantMap:
    case QMetaType::QVariantList:
        writeNumber(static_cast<quint32>(value.userType()));
        writeNumber(static_cast<qint8>(value.data_ptr().is_null));
        writeContent(value);
        break;
    default:
        QDataStream stream(&m_payload, QIODevice::Append);
        stream.setVersion(streamVersion);
        stream << value;
        break;
    }
}

void PayloadWriter::writeContent(const QVariant &value)
{
    switch (value.userType()) {
    case QMetaType::Bool:
        return writeNumber(static_cast<qint8>(content<bool>(value)));
    case QMetaType::Int:
        return writeNumber(content<qint32>(value));
    case QMetaType::UInt:
        return writeNumber(content<quint32>(value));
    case QMetaType::LongLong:
        return writeNumber(content<qint64>(value));
    case QMetaType::QString:
        return writeText(content<QString>(value));
    case QMetaType::QVariantMap: {
        const auto &map = content<QVariantMap>(value);
        writeNumber(static_cast<quint32>(map.size()));
        for (auto entry = map.cend(); entry != map.cbegin();) { // the last one first, as Qt does
            --entry;
            writeText(entry.key());
            write(entry.value());
        }
        return;
    }
    case QMetaType::QVariantList: {
        const auto &list = content<QVariantList>(value);
        writeNumber(static_cast<quint32>(list.size()));
        for (const QVariant &item : list)
            write(item);
        return;
    }
    default:
        return;
    }
}

void PayloadWriter::writeText(const QString &text)
{
    if (text.isNull())
        return writeNumber(nullLength);
    const int size = text.size() * static_cast<int>(sizeof(QChar));
    writeNumber(static_cast<quint32>(size));
    const int begin = m_payload.size();
    m_payload.resize(begin + size);
    qToBigEndian<quint16>(text.constData(), text.size(), m_payload.data() + begin);
}

} // namespace

QByteArray encodePayload(const QVariant &value)
{
    PayloadWriter writer(sizeInStream(value));
    writer.write(value);
    return writer.payload();
}

std::array<char, 8> frameHead(int firstLength, int payloadSize)
{
    std::array<char, 8> head;
    qToBigEndian<qint32>(firstLength, head.data());
    qToBigEndian<qint32>(payloadSize, head.data() + lengthFieldBytes);
    return head;
}

namespace {

QByteArray frameOf(const QByteArray &payload, int firstLength)
{
    const auto head = frameHead(firstLength, payload.size());
    return QByteArray(head.data(), int(head.size())) + payload;
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
    return frameOf(payload, payload.size() + int(lengthFieldBytes));
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
    if (!length) {
        char field[lengthFieldBytes] = {};
        device.read(field, lengthFieldBytes);
        length = qFromBigEndian<qint32>(field);
    }
    const qint64 available = device.bytesAvailable();
    if (available < *length || available == 0)
        return false;
    payload = takeArray(device);
    length.reset();
    return true;
}

} // namespace wire
