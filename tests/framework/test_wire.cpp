#include "wire.h"

#include <gmock/gmock.h>

#include <QBitArray>
#include <QBuffer>
#include <QCborArray>
#include <QCborMap>
#include <QDateTime>
#include <QEasingCurve>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineF>
#include <QLocale>
#include <QRect>
#include <QRegExp>
#include <QRegularExpression>
#include <QTimeZone>
#include <QUrl>
#include <QUuid>

#include <sys/resource.h>

namespace {

using ::testing::HasSubstr;

QByteArray bytes(const char *hex)
{
    return QByteArray::fromHex(hex);
}

/// What a stream writes for a value.
template <class T>
QByteArray streamed(const T &value)
{
    QByteArray result;
    QDataStream stream(&result, QIODevice::WriteOnly);
    stream.setVersion(wire::streamVersion);
    stream << value;
    return result;
}

/// A value of every type that a message may hold.
QVariantList everyType()
{
    const QDate day(2024, 2, 29);
    const QTime time(1, 2);
    QVariantList values;
    values << QVariant() << QVariantMap{{"a", 1}, {"A", "x"}} << QVariantHash{{"h", 1}}
           << QString("text \u4e2d") << QStringList{"a", "", "b"} << QByteArray("bytes")
           << QBitArray(13, true) << QBitArray(8, true);
    // The smallest entries, of which as many as can be fill the rest of the bytes.
    values << QVariantMap{{"", QVariant()}} << QVariantHash{{"", QVariant()}} << QStringList{""};
    values.append(QVariant(QVariantList{QVariant()}));
    values.append(QVariantList{1, "two", QVariant(), QVariantList{3}});
    values << day << time << QDateTime(day, time, Qt::UTC) << QDateTime(day, time, Qt::OffsetFromUTC, 3600)
           << QRect(1, 2, 3, 4) << QRectF(1.5, 2, 3, 4) << QLineF(1, 2, 3, 4) << QUuid::createUuid();
    values << QVariant::fromValue(QByteArrayList{"x", "y"}) << QVariant::fromValue(nullptr);
    values.append(QVariant(QMetaType::QVariant, &values[1]));
    for (int type : {QMetaType::QString, QMetaType::QByteArray, QMetaType::Int, QMetaType::QVariantMap})
        values.append(QVariant(static_cast<QVariant::Type>(type))); // null values
    for (int type = QMetaType::Bool; type <= QMetaType::SChar; ++type) {
        if (QVariant number(5); number.convert(type))
            values.append(number);
    }
    return values;
}

/// Why a payload doesn't parse.
std::string refusal(const QByteArray &payload)
{
    QString reason;
    const bool parses = wire::decodePayload(payload, &reason).isValid();
    EXPECT_EQ(parses, reason.isEmpty());
    return reason.toStdString();
}

TEST(Wire, EveryValueComesBackAsItWasSent)
{
    for (const QVariant &value : everyType()) {
        const QVariantMap message{{"value", value}, {"z", QString()}};
        const QByteArray sent = wire::encodePayload(message);
        EXPECT_EQ(sent.toHex(), streamed(QVariant(message)).toHex()) << value.typeName();
        EXPECT_EQ(refusal(sent), "") << value.typeName();
        const QVariant received = wire::decodePayload(sent);
        EXPECT_EQ(received.toMap()["value"].userType(), value.userType()) << sent.toHex().constData();
        EXPECT_EQ(wire::encodePayload(received).toHex(), sent.toHex()) << value.typeName();
    }
    EXPECT_EQ(wire::decodePayload(wire::encodePayload(5) + "behind"), QVariant(5));
}

TEST(Wire, BytesThatEndTooEarlyDoNotParse)
{
    const QByteArray sent = wire::encodePayload(everyType());
    for (int length = 0; length < sent.size(); ++length)
        ASSERT_FALSE(wire::decodePayload(sent.left(length)).isValid()) << length;
    EXPECT_TRUE(wire::decodePayload(sent).isValid());
    for (const QVariant &value : {QVariant(QString(20, 'x')), QVariant(QByteArray(20, 'x')),
                                  QVariant(QBitArray(9)), QVariant(QBitArray(160))})
        EXPECT_THAT(refusal(wire::encodePayload(value).chopped(1)), HasSubstr("goes beyond the frame"));
}

TEST(Wire, OtherTypesDoNotParse)
{
    const QDateTime zoned(QDate(2024, 2, 29), QTime(1, 2), QTimeZone("Europe/Paris"));
    QVariantList values{zoned};
    values << QUrl("http://a.b/c") << QLocale("de_AT") << QRegExp("a") << QRegularExpression("a")
           << QEasingCurve() << QJsonObject{{"j", 1}} << QJsonArray{1} << QJsonValue("json")
           << QJsonDocument(QJsonArray{1}) << QVariant::fromValue(QCborValue("c"))
           << QVariant::fromValue(QCborArray{1}) << QVariant::fromValue(QCborMap{{"k", 2}});
    for (const QVariant &value : values)
        EXPECT_THAT(refusal(wire::encodePayload(QVariantList{value})), HasSubstr("is not taken"))
            << value.typeName();
    EXPECT_EQ(refusal(bytes("00000011 00 00000000")), "type 17 (QUrl) is not taken");

    QVector<quint32> types{127, QMetaType::User, QMetaType::User + 1, 0x7fffffff, 0x80000000, 0xffffffff};
    types << QMetaType::Void;
    for (quint32 type = QMetaType::LastCoreType + 1; type <= QMetaType::LastGuiType; ++type)
        types.append(type);
    for (quint32 type : types)
        EXPECT_THAT(refusal(streamed(type) + QByteArray(65, '\0')), HasSubstr("is not known"));
    for (quint32 type : {QMetaType::VoidStar, QMetaType::QObjectStar, QMetaType::QModelIndex,
                         QMetaType::QPersistentModelIndex})
        EXPECT_THAT(refusal(streamed(type) + QByteArray(65, '\0')), HasSubstr("is not taken"));
}

/// Lengths and counts far beyond the bytes. Believing one would take gigabytes.
TEST(Wire, ClaimedLengthsTakeNoMemory)
{
    const char *const claims[] = {
        "00000008 00 ffffffff",          // map
        "00000008 00 00000001 7ffffffe", // its key
        "00000009 00 7fffffff 00000000", // list
        "0000001c 00 40000000 00000000", // hash
        "0000000b 00 40000000 00000000", // list of strings
        "00000031 00 7fffffff 00000000", // list of byte arrays
        "0000000a 00 fffffffe 0041",     // string
        "0000000c 00 7fffffff 41",       // byte array
        "0000000d 00 ffffffff ff",       // bit array
    };
    rusage before{};
    getrusage(RUSAGE_SELF, &before);
    for (const char *claim : claims)
        EXPECT_THAT(refusal(bytes(claim)), HasSubstr("goes beyond the frame")) << claim;
    rusage after{};
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 50000) << "kilobytes";
}

TEST(Wire, NestingIsBounded)
{
    // List, map, hash, value in a value; each with what ends it.
    for (const auto &[level, end] : {std::pair{"00000009 00 00000001", "00000000 00"},
                                     {"00000008 00 00000001 00000000", "00000000 00"},
                                     {"0000001c 00 00000001 00000000", "00000000 00"},
                                     {"00000029 00", "00000001 00 01"}}) {
        const auto nested = [level = bytes(level), end = bytes(end)](int depth) {
            return refusal(level.repeated(depth) + end);
        };
        EXPECT_EQ(nested(64), "");
        EXPECT_EQ(nested(65), "nested deeper than 64");
        EXPECT_EQ(nested(1000000), "nested deeper than 64");
    }
}

/// A request is read when all of it is there, a frame of equal lengths four bytes before.
TEST(Wire, RequestsAreNeverTakenInParts)
{
    const QByteArray request = wire::encodeRequest(QVariantMap{{"a", QByteArray(200, 'x')}});
    for (int arrived = 5; arrived <= request.size(); ++arrived) {
        QByteArray bytesOfRequest = request.left(arrived);
        QBuffer connection(&bytesOfRequest);
        connection.open(QIODevice::ReadOnly);
        std::optional<qint32> length;
        QByteArray payload;
        EXPECT_EQ(wire::takePayload(connection, length, payload), arrived == request.size());
        EXPECT_EQ(payload, arrived == request.size() ? request.mid(8) : QByteArray());
    }
}

} // namespace
