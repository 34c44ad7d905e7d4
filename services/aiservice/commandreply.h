#pragma once

#include <QVariantMap>

/// The replies of the controller's commands: "rsp_error", and a detail only where one is told.
namespace command {

inline QVariantMap reply(int error)
{
    return {{QStringLiteral("rsp_error"), error}};
}

inline QVariantMap reply(int error, const char *detail)
{
    return {{QStringLiteral("rsp_error"), error},
            {QStringLiteral("rsp_error_detail"), QString::fromLatin1(detail)}};
}

} // namespace command
