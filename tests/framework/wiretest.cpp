#include "wire.h"

#include <gtest/gtest.h>

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
#include <QRectF>
#include <QRegExp>
#include <QRegularExpression>
#include <QTimeZone>
#include <QUrl>
#include <QUuid>

#include <sys/resource.h>

namespace {

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

template <class T>
QVariant of(const T &value)
{
    return QVariant::fromValue(value);
}

/// A value of every type of QtCore that can be streamed.
QVariantList everyType()
{
    QVariantList values = {
        QVariant(),
        true,
        -5,
        5u,
        qint64(-7),
        quint64(7),
        2.5,
        QChar('c'),
        QVariantMap{{"a", 1}, {"A", "x"}},
        QVariantList{1, "two", QVariant(), QVariantList{3}},
        QString("text \u4e2d"),
        QStringList{"a", "", "b"},
        QByteArray("bytes"),
        QBitArray(13, true),
        QDate(2024, 2, 29),
        QTime(23, 59, 58, 999),
        QDateTime(QDate(2024, 2, 29), QTime(1, 2), Qt::UTC),
        QDateTime(QDate(2024, 2, 29), QTime(1, 2), QTimeZone("Europe/Paris")),
        QDateTime(QDate(2024, 2, 29), QTime(1, 2), Qt::OffsetFromUTC, 3600),
        QUrl("http://a.b/c?d#e"),
        QUrl("data:image/jpg;base64,AAAA//" + QString(5000, 'A')),
        QLocale("de_AT"),
        QRect(1, 2, 3, 4),
        QRectF(1.5, 2, 3, 4),
        QSize(5, 6),
        QSizeF(5.5, 6),
        QLine(1, 2, 3, 4),
        QLineF(1, 2, 3, 4.5),
        QPoint(7, 8),
        QPointF(7, 8.5),
        QRegExp("^[a-z]{1,3}\\.*$", Qt::CaseInsensitive, QRegExp::RegExp2),
        QVariantHash{{"h", 1}},
        QEasingCurve(QEasingCurve::OutBounce),

        QUuid::createUuid(),
        QRegularExpression("a+(b)"),
        QJsonObject{{"j", QJsonArray{1, "x", true}}},
        QJsonArray{1, QJsonValue()},
        QJsonDocument(QJsonObject{{"d", 1}}),
        QJsonValue("json"),
        QJsonValue(1.5),
        QJsonValue(QJsonArray{1}),
    };
    values += {of(long(-1)),
               of(short(-2)),
               of(char(3)),
               of(ulong(4)),
               of(ushort(5)),
               of(uchar(6)),
               of(1.25f),
               of<signed char>(-7),
               of(QByteArrayList{"x", "y"}),
               of(nullptr),
               of(QCborValue("c")),
               of(QCborArray{1, "z"}),
               of(QCborMap{{"k", 2}}),
               of(QCborSimpleType::True),
               QVariant(QMetaType::QVariant, &values[2])};
    for (int type = QMetaType::Bool; type <= QMetaType::QVariantHash; ++type)
        values.append(QVariant(static_cast<QVariant::Type>(type))); // null values
    return values;
}

TEST(Wire, FramesAreTheDocumentedBytes)
{
    EXPECT_EQ(wire::encodeFrame(QVariantMap()), bytes("00000009 00000009 00000008 00 00000000"));
    EXPECT_EQ(
        wire::encodePayload(QVariantMap{{"k", QVariantList{7, true}}}),
        bytes("00000008 00 00000001 00000002 006b 00000009 00 00000002 00000002 00 00000007 00000001 00 01"));
}

TEST(Wire, EveryValueComesBackAsItWasSent)
{
    for (const QVariant &value : everyType()) {
        const QByteArray sent = wire::encodePayload(QVariantMap{{"value", value}});
        const QVariant received = wire::decodePayload(sent);
        EXPECT_EQ(received.toMap()["value"].userType(), value.userType()) << sent.toHex().constData();
        EXPECT_EQ(wire::encodePayload(received).toHex(), sent.toHex()) << value.typeName();
    }
    EXPECT_EQ(wire::decodePayload(wire::encodePayload(5) + "behind"), QVariant(5));
}

TEST(Wire, BytesThatEndTooEarlyDoNotParse)
{
    EXPECT_FALSE(wire::decodePayload({}).isValid());
    const QByteArray sent = wire::encodePayload(everyType());
    for (int length = 0; length < sent.size(); ++length)
        ASSERT_FALSE(wire::decodePayload(sent.left(length)).isValid()) << length;
    EXPECT_TRUE(wire::decodePayload(sent).isValid());
}

TEST(Wire, TypesThatAreNoValuesDoNotParse)
{
    const auto payload = [](quint32 type, const QByteArray &content) {
        return streamed(type) + '\0' + content;
    };
    QList<quint32> refused = {QMetaType::VoidStar,
                              QMetaType::QObjectStar,
                              QMetaType::QModelIndex,
                              QMetaType::QPersistentModelIndex,
                              QMetaType::Void,
                              QMetaType::QSizePolicy,
                              127,
                              QMetaType::User + 1,
                              0x7fffffff,
                              0x80000000,
                              0xffffffff};
    for (quint32 type = QMetaType::LastCoreType + 1; type <= QMetaType::LastGuiType; ++type)
        refused.append(type);
    for (quint32 type : refused)
        EXPECT_FALSE(wire::decodePayload(payload(type, QByteArray(64, '\0'))).isValid()) << type;
    EXPECT_FALSE(
        wire::decodePayload(payload(QMetaType::User, bytes("00000004 696e7400 00000001"))).isValid());
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
        "00000011 00 7fffffff 41",       // url
        "0000002c 00 7ffffffe 0041",     // regular expression
        "0000002d 00 03 7ffffffe 0041",  // JSON string
        "0000002e 00 7fffffff 7b7d",     // JSON object
        "00000035 00 7fffffff 41",       // CBOR value
        "00000035 00 00000009 5b7fffffffffffffff",
        "00000036 00 00000009 9b7fffffffffffffff",
        "00000037 00 00000009 bb3fffffffffffffff",
    };
    rusage before{};
    getrusage(RUSAGE_SELF, &before);
    for (const char *claim : claims)
        EXPECT_FALSE(wire::decodePayload(bytes(claim)).isValid()) << claim;
    rusage after{};
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 50000) << "kilobytes";
}

TEST(Wire, NestingIsBounded)
{
    const auto lists = [](int depth) {
        return bytes("00000009 00 00000001").repeated(depth) + bytes("00000000 00");
    };
    const auto maps = [](int depth) {
        return bytes("00000008 00 00000001 00000000").repeated(depth) + bytes("00000000 00");
    };
    const auto hashes = [](int depth) {
        return bytes("0000001c 00 00000001 00000000").repeated(depth) + bytes("00000000 00");
    };
    const auto variants = [](int depth) {
        return bytes("00000029 00").repeated(depth) + bytes("00000001 00 01");
    };
    using Nest = std::function<QByteArray(int)>;
    for (const Nest &nest : {Nest(lists), Nest(maps), Nest(hashes), Nest(variants)}) {
        EXPECT_TRUE(wire::decodePayload(nest(wire::maximumNesting)).isValid());
        EXPECT_FALSE(wire::decodePayload(nest(wire::maximumNesting + 1)).isValid());
        EXPECT_FALSE(wire::decodePayload(nest(1000000)).isValid());
    }
}

/// Small values that would keep the process busy, make it open files or end it, when Qt gets to see them.
TEST(Wire, CostlyValuesDoNotParse)
{
    const auto refused = [](const QByteArray &payload) { return !wire::decodePayload(payload).isValid(); };

    const QByteArray syntax = bytes("01 00 00");
    for (const char *pattern :
         {"(((a{900}){900}){900})", "((((((a{9}){9}){9}){9}){9}){9})", "a{99999999999999999999}"})
        EXPECT_TRUE(refused(bytes("0000001b 00") + streamed<QString>(pattern) + syntax)) << pattern;
    EXPECT_TRUE(refused(bytes("0000001b 00") + streamed<QString>(QString("a?").repeated(5000)) + syntax));
    const QByteArray many = (bytes("0000001b 00") + streamed<QString>("[a-z]") + syntax).repeated(10000);
    EXPECT_TRUE(refused(bytes("00000009 00 00002710") + many));

    QString host;
    for (int i = 0; i < 100000; ++i)
        host += QChar(0x4e00 + i * 7919 % 20000);
    for (const QString &start : {QString("http://"), QString("//"), QString("\ufeff//")}) {
        EXPECT_TRUE(refused(bytes("00000011 00") + streamed((start + host + "/").toUtf8())));
    }

    const QByteArray zoned = bytes("00000010 00 000000000025873f 00000000 03");
    EXPECT_FALSE(refused(zoned + streamed<QString>("Europe/Paris")));
    EXPECT_TRUE(refused(zoned + streamed<QString>("../../../etc/localtime")));
    EXPECT_TRUE(refused(zoned + streamed<QString>("/etc/localtime")));
    EXPECT_TRUE(refused(zoned + streamed<QString>("Europe/Nowhere"))) << "Qt can't write it";
}

/// The length before each array makes the reading start at once.
TEST(Wire, AnArrayIsTakenAsFarAsItIsThere)
{
    struct Case
    {
        const char *content;
        const char *payload;
        const char *behind;
    };
    const Case cases[] = {{"00000001 00000002 0102 03", "0102", "03"}, {"ffffffff 00000002 0102", "0102", ""},
                          {"80000000 ffffffff 03", "", "03"},          {"00000001 00000004 010203", "", ""},
                          {"00000001 7fffffff 010203", "", ""},        {"00000001 0000", "", ""}};
    for (const Case &array : cases) {
        QByteArray content = bytes(array.content);
        QBuffer device(&content);
        device.open(QIODevice::ReadOnly);
        std::optional<qint32> length;
        QByteArray payload = "untouched";
        EXPECT_TRUE(wire::takePayload(device, length, payload)) << array.content;
        EXPECT_EQ(payload, bytes(array.payload)) << array.content;
        EXPECT_EQ(device.readAll(), bytes(array.behind)) << array.content;
        EXPECT_FALSE(length);
    }
}

TEST(Wire, AnIncompleteFrameIsResumed)
{
    QByteArray content = bytes("00000003 0000");
    QBuffer device(&content);
    device.open(QIODevice::ReadOnly);
    std::optional<qint32> length;
    QByteArray payload;
    EXPECT_FALSE(wire::takePayload(device, length, payload));
    EXPECT_EQ(length, 3);
    content += bytes("0003 010203");
    EXPECT_TRUE(wire::takePayload(device, length, payload));
    EXPECT_EQ(payload, bytes("010203"));
}

} // namespace
