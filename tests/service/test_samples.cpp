#include "classroom.h"
#include "conforms.h"
#include "json.h"
#include "samples.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

/// The value with every picture, which the page cuts short, whole.
QVariant withPictures(const QVariant &value)
{
    if (value.userType() == QMetaType::QVariantMap) {
        QVariantMap map = value.toMap();
        for (auto entry = map.begin(); entry != map.end(); ++entry)
            *entry = withPictures(*entry);
        return map;
    }
    if (value.userType() == QMetaType::QVariantList) {
        QVariantList list;
        for (const QVariant &entry : value.toList())
            list.append(withPictures(entry));
        return list;
    }
    return value.toString().startsWith("data:image/") ? galleryOf("")["faceImg"] : value;
}

/// The samples of the page are a lesson: said to the service in their order, they are answered as the page
/// says.
TEST(ProtocolPage, ItsSamplesAreAnsweredAsItSays)
{
    QList<Samples::Exchange> lesson = Samples::ofPage().exchanges;
    // On the page the service is closed and reset before the lesson has begun.
    const auto turn = [](const Samples::Exchange &sample) {
        const QVariant command = sample.request["req_data"].toMap()["command_code"];
        return sample.request["req_code"] == 2 ? 2 : command == 1028 ? 1 : 0;
    };
    std::stable_sort(lesson.begin(), lesson.end(),
                     [&](const auto &one, const auto &other) { return turn(one) < turn(other); });

    ServiceProcess service;
    FrameSource camera(service.home());
    ASSERT_TRUE(camera.start());
    ASSERT_TRUE(service.start()) << service.standardError().constData();
    TestClient client(service.socketPath());
    client.inspect = expectConforms;
    for (const auto &[sample, answer] : lesson) {
        const QVariantMap request = withPictures(sample).toMap();
        QVariantMap reply;
        do // the camera is found half a second after the open
            reply = client.request(request);
        while (reply["rsp_error"] == -9);
        reply["rsp_id"] = answer["rsp_id"];
        EXPECT_EQ(json::line(json::fromVariant(reply).toObject()).toStdString(),
                  json::line(json::fromVariant(answer).toObject()).toStdString())
            << sample["req_id"].toString().toStdString();
        if (request["req_data"].toMap()["command_code"] == 1021)
            client.event(1011);
    }
    service.crash();
}

} // namespace
