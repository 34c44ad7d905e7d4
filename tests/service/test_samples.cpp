#include "classroom.h"
#include "conforms.h"
#include "json.h"
#include "samples.h"

#include <QRegularExpression>

namespace {

using ProtocolPage = ClassroomTest<ServiceProcess>;

/// The samples of the page are a lesson: said to the service in their order, they are answered as the page
/// says.
TEST_F(ProtocolPage, ItsSamplesAreAnsweredAsItSays)
{
    QList<Samples::Exchange> lesson = Samples::ofPage().exchanges;
    // On the page the service is closed and reset before the lesson has begun.
    const auto turn = [](const Samples::Exchange &sample) {
        const QVariant command = sample.request["req_data"].toMap()["command_code"];
        return sample.request["req_code"] == 2 ? 2 : command == 1028 ? 1 : 0;
    };
    std::stable_sort(lesson.begin(), lesson.end(),
                     [&](const auto &one, const auto &other) { return turn(one) < turn(other); });

    ASSERT_TRUE(camera.start());
    startService();
    client->inspect = expectConforms;
    const QRegularExpression shortPicture("data:image/[^\"]*");
    QString error;
    for (const auto &[sample, answer] : lesson) {
        QString text = json::line(json::fromVariant(sample).toObject());
        text.replace(shortPicture, galleryOf("")["faceImg"].toString());
        const QVariantMap request = json::parse(text.toUtf8(), &error).toMap();
        QVariantMap reply;
        do // the camera is found half a second after the open
            reply = client->request(request);
        while (reply["rsp_error"] == -9);
        reply["rsp_id"] = answer["rsp_id"];
        EXPECT_EQ(json::line(json::fromVariant(reply).toObject()).toStdString(),
                  json::line(json::fromVariant(answer).toObject()).toStdString())
            << sample["req_id"].toString().toStdString();
        if (request["req_data"].toMap()["command_code"] == 1021)
            client->event(1011);
    }
}

} // namespace
