#include "wire.h"

#include <gtest/gtest.h>

#include <QBitArray>
#include <QCborArray>
#include <QCborMap>
#include <QDateTime>
#include <QEasingCurve>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
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

/// A value of every type of QtCore that can be streamed.
QVariantList everyType()
{
    const QDate day(2024, 2, 29);
    const QTime time(1, 2);
    QVariantList values;
    values << QVariant() << QVariantMap{{"a", 1}, {"A", "x"}} << QVariantHash{{"h", 1}}
           << QString("text \u4e2d") << QStringList{"a", "", "b"} << QByteArray("bytes")
           << QBitArray(13, true);
    values.append(QVariantList{1, "two", QVariant(), QVariantList{3}});
    values << QDateTime(day, time, Qt::UTC) << QDateTime(day, time, QTimeZone("Europe/Paris"))
           << QDateTime(day, time, Qt::OffsetFromUTC, 3600) << QUrl("http://a.b/c?d#e")
           << QUrl("data:image/jpg;base64,AAAA//" + QString(5000, 'A')) << QLocale("de_AT")
           << QRectF(1.5, 2, 3, 4) << QRegExp("^[a-z]{1,3}\\.*$", Qt::CaseInsensitive, QRegExp::RegExp2)
           << QEasingCurve(QEasingCurve::OutBounce) << QUuid::createUuid() << QRegularExpression("a+(b)");
    values << QJsonObject{{"j", QJsonArray{1, "x", true}}} << QJsonArray{1, QJsonValue()}
           << QJsonDocument(QJsonObject{{"d", 1}}) << QJsonValue("json") << QJsonValue(QJsonArray{1});
    values << QVariant::fromValue(QByteArrayList{"x", "y"}) << QVariant::fromValue(nullptr)
           << QVariant::fromValue(QCborValue("c")) << QVariant::fromValue(QCborArray{1, "z"})
           << QVariant::fromValue(QCborMap{{"k", 2}}) << QVariant::fromValue(QCborSimpleType::True);
    values.append(QVariant(QMetaType::QVariant, &values[1]));
    for (int type = QMetaType::Bool; type <= QMetaType::QVariantHash; ++type)
        values.append(QVariant(static_cast<QVariant::Type>(type))); // null values
    for (int type = QMetaType::Bool; type <= QMetaType::LastCoreType; ++type) {
        if (QVariant number(5); number.convert(type))
            values.append(number);
    }
    return values;
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
    const QByteArray sent = wire::encodePayload(everyType());
    for (int length = 0; length < sent.size(); ++length)
        ASSERT_FALSE(wire::decodePayload(sent.left(length)).isValid()) << length;
    EXPECT_TRUE(wire::decodePayload(sent).isValid());
}

TEST(Wire, TypesThatAreNoValuesDoNotParse)
{
    QVector<quint32> types{127, QMetaType::User + 1, 0x7fffffff, 0x80000000, 0xffffffff};
    types << QMetaType::Void << QMetaType::VoidStar << QMetaType::QObjectStar << QMetaType::QSizePolicy
          << QMetaType::QModelIndex << QMetaType::QPersistentModelIndex;
    for (quint32 type = QMetaType::LastCoreType + 1; type <= QMetaType::LastGuiType; ++type)
        types.append(type);
    for (quint32 type : types)
        EXPECT_FALSE(wire::decodePayload(streamed(type) + QByteArray(65, '\0')).isValid()) << type;
    EXPECT_FALSE(wire::decodePayload(bytes("00000400 00 00000004 696e7400 00000001")).isValid());
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
        "00000035 00 00000006 5a3fffffff41", // a string, in an array, in chunks
        "00000036 00 00000008 8101 7a3fffffff 41",
        "00000035 00 00000007 5f 5a3fffffff ff",
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
    // List, map, hash, value in a value; each with what ends it.
    for (const auto &[level, end] : {std::pair{"00000009 00 00000001", "00000000 00"},
                                     {"00000008 00 00000001 00000000", "00000000 00"},
                                     {"0000001c 00 00000001 00000000", "00000000 00"},
                                     {"00000029 00", "00000001 00 01"}}) {
        const auto nested = [level = bytes(level), end = bytes(end)](int depth) {
            return wire::decodePayload(level.repeated(depth) + end);
        };
        EXPECT_TRUE(nested(wire::maximumNesting).isValid());
        EXPECT_FALSE(nested(wire::maximumNesting + 1).isValid());
        EXPECT_FALSE(nested(1000000).isValid());
    }
}

/// Small values that would keep the process busy, make it open files or end it, when Qt gets to see them.
TEST(Wire, CostlyValuesDoNotParse)
{
    const auto refused = [](const QByteArray &payload) { return !wire::decodePayload(payload).isValid(); };

    const auto expression = [](const QString &pattern) {
        return bytes("0000001b 00") + streamed(pattern) + bytes("01 00 00");
    };
    for (const QString &pattern :
         {QString("(((a{900}){900}){900})"), QString("((((((a{9}){9}){9}){9}){9}){9})"),
          QString("a{99999999999999999999}"), QString("a?").repeated(5000)})
        EXPECT_TRUE(refused(expression(pattern))) << qPrintable(pattern.left(50));
    EXPECT_TRUE(refused(bytes("00000009 00 00002710") + expression("[a-z]").repeated(10000)));

    QString host;
    for (int i = 0; i < 100000; ++i)
        host += QChar(0x4e00 + i * 7919 % 20000);
    for (const char *start : {"http://", "//", "\ufeff//"})
        EXPECT_TRUE(refused(bytes("00000011 00") + streamed((start + host + "/").toUtf8())));

    for (const char *start : {"d8 20 7a", "c1 d8 20 7a"}) { // in CBOR
        const QByteArray url = ("http://" + host + "/").toUtf8();
        EXPECT_TRUE(refused(bytes("00000035 00") + streamed(bytes(start) + streamed(url))));
    }

    const QByteArray zoned = bytes("00000010 00 000000000025873f 00000000 03");
    EXPECT_FALSE(refused(zoned + streamed<QString>("Europe/Paris")));
    EXPECT_TRUE(refused(zoned + streamed<QString>("../../../etc/localtime")));
    EXPECT_TRUE(refused(zoned + streamed<QString>("/etc/localtime")));
    EXPECT_TRUE(refused(zoned + streamed<QString>("Europe/Nowhere"))) << "Qt can't write it";
}

} // namespace
