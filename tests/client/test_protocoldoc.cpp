#include "eventtext.h"
#include "json.h"
#include "wire.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSet>

namespace {

struct Block
{
    QString language;
    QString text;
};

/// The code blocks of the page, in order.
QList<Block> codeBlocks()
{
    QFile page(PROTOCOL_PAGE);
    EXPECT_TRUE(page.open(QIODevice::ReadOnly));
    const QRegularExpression fence("^```(\\w+)\n(.*?)^```$",
                                   QRegularExpression::MultilineOption |
                                       QRegularExpression::DotMatchesEverythingOption);
    QList<Block> blocks;
    auto matches = fence.globalMatch(QString::fromUtf8(page.readAll()));
    while (matches.hasNext()) {
        const auto match = matches.next();
        blocks.append({match.captured(1), match.captured(2)});
    }
    return blocks;
}

QByteArray bytesOf(const QString &hexText)
{
    QString bytes;
    for (const auto &line : hexText.split('\n'))
        bytes += line.section('#', 0, 0);
    return QByteArray::fromHex(bytes.toLatin1());
}

} // namespace

TEST(ProtocolPage, ItsHexFramesAreTheMapsBesideThem)
{
    const auto blocks = codeBlocks();
    int frames = 0;
    for (int i = 0; i + 1 < blocks.size(); ++i) {
        if (blocks[i].language != "hex")
            continue;
        ++frames;
        ASSERT_EQ(blocks[i + 1].language, "json");
        const auto frame = bytesOf(blocks[i].text);
        const auto value = wire::decodePayload(frame.mid(8));
        EXPECT_EQ(json::fromVariant(value).toObject(),
                  QJsonDocument::fromJson(blocks[i + 1].text.toUtf8()).object())
            << qPrintable(blocks[i].text);
        EXPECT_EQ(wire::encodeFrame(value).toHex().toStdString(), frame.toHex().toStdString());
    }
    EXPECT_EQ(frames, 3);
}

TEST(ProtocolPage, HasASampleOfEachEventWithTheKeysThatAReaderNeeds)
{
    QSet<int> codes;
    for (const auto &block : codeBlocks()) {
        const auto sample = QJsonDocument::fromJson(block.text.toUtf8()).object();
        if (block.language != "json" || sample["type"].toInt() != 2)
            continue;
        const auto code = sample["msg"].toInt();
        codes.insert(code);
        const AiEvent event{uint(code), json::toVariant(sample["event_info"]).toMap(),
                            sample["event_type"].toString(), sample["event_req_id"].toString()};
        // A key by another name would be told as missing or zero.
        const auto text = eventText(event);
        EXPECT_FALSE(text.contains(" 0x0")) << qPrintable(text);
        EXPECT_FALSE(text.contains("nobody") || text.contains("none")) << qPrintable(text);
        EXPECT_TRUE(sample["event_req_id"].toString() == "0" || event.type == "execute");
    }
    EXPECT_EQ(codes.size(), 12);
}
