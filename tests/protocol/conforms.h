#pragma once

#include "schema.h"

#include <gtest/gtest.h>

/// For TestClient::inspect: what the service sends is what docs/asyncapi.json says, down to the types on the
/// wire.
inline void expectConforms(const QVariantMap &request, const QVariantMap &message)
{
    const QString complaints = request.isEmpty() ? schema::eventComplaints(message, schema::Wire)
                                                 : schema::replyComplaints(request, message, schema::Wire);
    EXPECT_EQ(complaints.toStdString(), "");
}
