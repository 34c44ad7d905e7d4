#pragma once

#include "aiclient.h"

#include <QJsonObject>

/// A text as one line on a terminal: characters that would control it, names may hold some, become \uXXXX.
QString visible(const QString &text);

/// One line for a person that tells an event, without its pictures: the code and what it says.
QString eventText(const AiEvent &event);

/// The event as one JSON object with the keys "msg", "event_type", "event_req_id" and "event_info".
/// @param pictures false puts a short note in the place of each picture
QJsonObject eventObject(const AiEvent &event, bool pictures);
