#pragma once

#include <QByteArray>

/// The AsyncAPI document of the protocol, made from the rows of messages.h: the JSON Schema of every request,
/// reply and event, as maps that went through JSON (an invalid value is null).
QByteArray asyncApiDocument();
