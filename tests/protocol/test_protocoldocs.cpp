#include "asyncapi.h"
#include "json.h"
#include "messages.h"
#include "page.h"
#include "samples.h"
#include "schema.h"
#include "wire.h"

#include <gtest/gtest.h>

#include <QRegularExpression>
#include <QSet>

namespace {

// What is said when one of these fails: build/bin/protocoldocs docs
TEST(ProtocolDocs, AreInStepWithTheRows)
{
    EXPECT_TRUE(document("asyncapi.json") == asyncApiDocument());
    const QString page = QString::fromUtf8(document("protocol.md"));
    QString problems;
    EXPECT_TRUE(withTables(page, &problems) == page);
    EXPECT_EQ(problems.toStdString(), "");
    for (const ai::CommandRow &row : ai::commands) {
        // These two share a table with the command beside them.
        const bool shares =
            row.command == ai::Command::StartFollowing || row.command == ai::Command::StopGame;
        const QString comment = QString("<!-- table: %1-request -->").arg(row.name);
        EXPECT_TRUE(row.request.empty() || shares || page.contains(comment)) << row.name;
    }
    for (const ai::EventRow &row : ai::events)
        EXPECT_TRUE(page.contains(QString("<!-- table: %1-event -->").arg(row.name))) << row.name;
}

TEST(ProtocolDocs, EveryMessageHasASampleThatConforms)
{
    const Samples samples = Samples::ofPage();
    QSet<unsigned> commands;
    QSet<int> kinds;
    for (const auto &[request, reply] : samples.exchanges) {
        const std::string shown = request["req_id"].toString().toStdString();
        EXPECT_EQ(schema::requestComplaints(request, schema::Json).toStdString(), "") << shown;
        EXPECT_EQ(schema::replyComplaints(request, reply, schema::Json).toStdString(), "") << shown;
        EXPECT_EQ(reply["rsp_id"], request["req_id2"]) << shown;
        kinds.insert(request["req_code"].toInt());
        if (request["req_code"] == code(ai::Kind::Execute))
            commands.insert(request["req_data"].toMap()["command_code"].toUInt());
    }
    EXPECT_EQ(kinds, (QSet<int>{1, 2, 3, 4}));
    for (const ai::CommandRow &row : ai::commands)
        EXPECT_TRUE(commands.contains(code(row.command))) << row.name;

    QSet<unsigned> events;
    for (const QVariantMap &event : samples.events) {
        EXPECT_EQ(schema::eventComplaints(event, schema::Json).toStdString(), "");
        events.insert(event["msg"].toUInt());
    }
    for (const ai::EventRow &row : ai::events)
        EXPECT_TRUE(events.contains(code(row.event))) << row.name;
}

TEST(ProtocolDocs, TheHexFramesAreTheMapsBesideThem)
{
    const QRegularExpression pair("^```hex\n(.*?)^```\\s+^```json\n(.*?)^```$",
                                  QRegularExpression::MultilineOption |
                                      QRegularExpression::DotMatchesEverythingOption);
    const QRegularExpression comment("#.*$", QRegularExpression::MultilineOption);
    auto pairs = pair.globalMatch(QString::fromUtf8(document("protocol.md")));
    int frames = 0;
    for (; pairs.hasNext(); ++frames) {
        const auto match = pairs.next();
        const auto frame = QByteArray::fromHex(match.captured(1).remove(comment).toLatin1());
        const auto value = wire::decodePayload(frame.mid(8));
        QString error;
        EXPECT_EQ(json::fromVariant(value),
                  json::fromVariant(json::parse(match.captured(2).toUtf8(), &error)))
            << qPrintable(match.captured(1));
        const auto isReply = value.toMap().contains("type");
        EXPECT_EQ(isReply ? wire::encodeFrame(value) : wire::encodeRequest(value), frame);
    }
    EXPECT_EQ(frames, 3);
}

/// What the checks above are worth.
TEST(ProtocolDocs, TheSchemaFindsWhatIsWrong)
{
    const QVariantMap video{{"type", 2},
                            {"msg", 1022U},
                            {"event_info", QVariantMap{{"status", 1}}},
                            {"event_type", "service"},
                            {"event_req_id", "0"}};
    const auto complaints = [&](const char *key, const QVariant &value, schema::Strictness strictness) {
        QVariantMap changed = video;
        changed[key] = value;
        return schema::eventComplaints(changed, strictness);
    };
    EXPECT_EQ(complaints("type", 2, schema::Wire).toStdString(), "");
    EXPECT_NE(complaints("type", 1, schema::Json), "");
    EXPECT_EQ(complaints("msg", 1022, schema::Json), "");
    EXPECT_NE(complaints("msg", 1999U, schema::Json), "");
    EXPECT_NE(complaints("more", 1, schema::Json), "");
    EXPECT_NE(complaints("event_type", "execute", schema::Json), "");
    EXPECT_NE(complaints("event_info", QVariant(), schema::Json), "");
    EXPECT_NE(complaints("event_info", QVariantMap{}, schema::Json), "");
    EXPECT_NE(complaints("event_info", QVariantMap{{"status", "1"}}, schema::Json), "");
    EXPECT_NE(complaints("event_info", QVariantMap{{"status", 0.5}}, schema::Json), "");
    EXPECT_EQ(complaints("event_info", QVariantMap{{"status", 1U}}, schema::Json), "");
    EXPECT_NE(complaints("event_info", QVariantMap{{"status", 1U}}, schema::Wire), "");

    const QVariantMap request{{"req_code", 3}, {"req_data", QVariantMap{{"command_code", 1020}}}};
    const QVariantMap entry{{"stuID", 1}};
    const QVariantMap reply{
        {"type", 1},
        {"rsp_id", 1},
        {"rsp_error", 0},
        {"rsp_data", QVariantMap{{"command_code", 1020U}, {"failedStuList", QVariantList{entry}}}}};
    EXPECT_TRUE(schema::replyComplaints(request, reply, schema::Wire).contains("failedStuList[0].stuID"));
}

} // namespace
