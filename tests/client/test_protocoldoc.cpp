#include "json.h"
#include "wire.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonDocument>
#include <QRegularExpression>

TEST(ProtocolPage, ItsHexFramesAreTheMapsBesideThem)
{
    QFile page(PROTOCOL_PAGE);
    ASSERT_TRUE(page.open(QIODevice::ReadOnly));
    const QRegularExpression pair("^```hex\n(.*?)^```\\s+^```json\n(.*?)^```$",
                                  QRegularExpression::MultilineOption |
                                      QRegularExpression::DotMatchesEverythingOption);
    const QRegularExpression comment("#.*$", QRegularExpression::MultilineOption);
    auto pairs = pair.globalMatch(QString::fromUtf8(page.readAll()));
    int frames = 0;
    for (; pairs.hasNext(); ++frames) {
        const auto match = pairs.next();
        const auto frame = QByteArray::fromHex(match.captured(1).remove(comment).toLatin1());
        const auto value = wire::decodePayload(frame.mid(8));
        EXPECT_EQ(json::fromVariant(value).toObject(),
                  QJsonDocument::fromJson(match.captured(2).toUtf8()).object())
            << qPrintable(match.captured(1));
        const auto isReply = value.toMap().contains("type");
        const auto written = isReply ? wire::encodeFrame(value) : wire::encodeRequest(value);
        EXPECT_EQ(written.toHex().toStdString(), frame.toHex().toStdString());
    }
    EXPECT_EQ(frames, 3);
}
