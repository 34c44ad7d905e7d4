#pragma once

#include "protocol.h"

#include <QVariantMap>

/// The replies of the controller's commands: "rsp_error", and a detail only where one is told.
namespace command {

inline QVariantMap reply(ai::Error error)
{
    return {{QStringLiteral("rsp_error"), code(error)}};
}

inline QVariantMap reply(ai::Error error, const char *detail)
{
    return {{QStringLiteral("rsp_error"), code(error)},
            {QStringLiteral("rsp_error_detail"), QString::fromLatin1(detail)}};
}

} // namespace command
