#pragma once

#include "imageutil.h"
#include "messages.h"
#include "serviceprocess.h"

#include <opencv2/imgproc.hpp>

#include <QVariantMap>

#include <memory>

/// All recognisers, as a client asks for them.
inline QVariantMap allModels()
{
    QVariantMap models;
    for (const ai::Key &key : ai::recogniserKeys)
        models.insert(key.name, true);
    return models;
}

/// An enrolment, or a replacement (1023), with a face that no other number has. It has structure: a
/// recogniser may refuse a flat one.
inline QVariantMap galleryOf(const QString &student, unsigned number = 3)
{
    cv::Mat coarse(16, 16, CV_8UC3), picture;
    cv::RNG(number).fill(coarse, cv::RNG::UNIFORM, 0, 255);
    cv::resize(coarse, picture, cv::Size(128, 128), 0, 0, cv::INTER_CUBIC);
    const QString face = ai_image::convertMat2Base64(picture);
    return {
        {"stuID", student}, {"oldStuID", student}, {"faceImg", face}, {"faceImageBase64", face}, {"x", 10},
        {"y", 10},          {"width", 90},         {"height", 90}};
}

/// Asks until the reader has connected: right after an open, and after a camera came, commands may be
/// refused with -9 for half a second.
inline QVariantMap executeWhenConnected(TestClient &client, int code)
{
    for (int i = 0; i < 200; ++i) {
        const QVariantMap reply = client.execute(code);
        if (reply["rsp_error"] != -9)
            return reply;
        client.receive(50); // waits; an event that comes meanwhile is of no interest
    }
    return {};
}

/// The students that the service knows, by the pictures that it sends of them (1026), in its order.
inline QStringList studentsOf(TestClient &client)
{
    QStringList ids;
    if (client.execute(1026)["rsp_error"] != 0)
        return {"refused"};
    for (const QVariant &entry : client.event(1021)["event_info"].toMap()["bestGalleries"].toList())
        ids.append(entry.toMap()["stuID"].toString());
    return ids;
}

/// A service, a camera and a client.
template <class Service>
class ClassroomTest : public ::testing::Test
{
protected:
    virtual void startService(const QStringList &arguments = {})
    {
        client.reset();
        ASSERT_TRUE(service.start(arguments)) << service.standardError().constData();
        connectClient();
    }
    void connectClient()
    {
        client.reset(new TestClient(service.socketPath()));
        ASSERT_TRUE(client->isConnected());
    }
    void startClass(int interval = 10, const QVariantMap &models = allModels())
    {
        ASSERT_TRUE(camera.start(interval));
        startService();
        openClass(models);
    }
    /// Opens the service, which sees a camera, and loads the models.
    void openClass(QVariantMap models = allModels())
    {
        ASSERT_EQ(client->open()["rsp_error"], 0);
        models["enableEmotion"] = true;
        ASSERT_EQ(code(1001, models), 0);
        // Refused with -12 as soon as there is a camera.
        ASSERT_EQ(executeWhenConnected(*client, 1022)["rsp_error"], -12);
    }

    int code(int command, const QVariantMap &data = {}, const QString &requestID = {})
    {
        const QVariantMap answer = client->execute(command, data, requestID);
        return answer.isEmpty() ? unanswered : answer["rsp_error"].toInt();
    }

    /// The students that were taken, in the order of the request.
    QStringList enrolFaces(const QVariantList &galleries)
    {
        QStringList taken;
        if (code(1022, {{"galleries", galleries}}) != 0)
            return {"refused"};
        const QVariantMap event = client->event(1018)["event_info"].toMap();
        for (const QVariant &entry : event["successList"].toList())
            taken.append(entry.toMap()["stuID"].toString());
        return taken;
    }
    QStringList enrol(const QStringList &students)
    {
        QVariantList galleries;
        for (const QString &student : students)
            galleries.append(galleryOf(student));
        return enrolFaces(galleries);
    }

    static constexpr int unanswered = 1;
    Service service;
    FrameSource camera{service.home()};
    std::unique_ptr<TestClient> client;
};
