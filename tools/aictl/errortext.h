#pragma once

#include "aiclient.h"

/// What went wrong with a request, for a person: number and detail, what the number means, and what to do
/// about it.
QString errorText(const AiReply &reply);
