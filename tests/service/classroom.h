#pragma once

#include "serviceprocess.h"

#include <QVariantMap>

/// All recognisers, as a client asks for them.
inline QVariantMap allModels()
{
    return {{"faceMtcnn", true}, {"faceid", true},  {"ssd", true},     {"bodypose", true},
            {"handup", true},    {"emotion", true}, {"faceAttr", true}};
}

/// Asks until the reader has connected: right after an open, and after a camera came, commands may be
/// refused with -9 for half a second.
inline QVariantMap executeWhenConnected(TestClient &client, int code, const QVariant &data = {},
                                        const QString &requestID = {})
{
    for (int i = 0; i < 200; ++i) {
        const QVariantMap reply = client.execute(code, data, requestID);
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
