#pragma once

#include "imageutil.h"
#include "messages.h"
#include "serviceprocess.h"

#include <opencv2/imgproc.hpp>

#include <QVariantMap>

/// All recognisers, as a client asks for them.
inline QVariantMap allModels()
{
    QVariantMap models;
    for (const ai::Key &key : ai::recogniserKeys)
        models.insert(key.name, true);
    return models;
}

/// An enrolment. The face has structure: a recogniser may refuse a flat one.
inline QVariantMap galleryOf(const QString &student)
{
    static const QString face = [] {
        cv::Mat coarse(16, 16, CV_8UC3), picture;
        cv::RNG(3).fill(coarse, cv::RNG::UNIFORM, 0, 255);
        cv::resize(coarse, picture, cv::Size(128, 128), 0, 0, cv::INTER_CUBIC);
        return ai_image::convertMat2Base64(picture);
    }();
    return {{"stuID", student}, {"faceImg", face}, {"x", 10}, {"y", 10}, {"width", 90}, {"height", 90}};
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
