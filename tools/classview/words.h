#pragma once

#include "aiclient.h"
#include "classmodel.h"
#include "portrait.h"

#include <QString>

/// The protocol in the words of people, in their language.
namespace words {

/// What a request does: "Start watching hands".
QString command(AiClient::Kind kind, uint code);
/// What an event is about: "Hands raised".
QString event(uint code);
/// What an error code means for this request, and what to do about it. Empty on success.
QString failure(AiClient::Kind kind, uint code, const AiReply &reply);
inline QString failure(ai::Command command, const AiReply &reply)
{
    return failure(AiClient::Execute, code(command), reply);
}
/// "not running", "does not answer", "closed", "open", "ready", of what ServiceLink::state() tells.
QString serviceState(int state);
/// What a pose class adds to the attention of the class.
double attentionWeight(int poseClass);
/// What a pose class says of the attention: "attentive", "partly", "elsewhere".
QString attention(int poseClass);
/// Why a picture file gives no face to enrol, and what to do.
QString portraitProblem(PortraitMaker::Problem problem);
QString markKind(MarkKind kind);
/// "now", "3 s", "2 min".
QString age(qint64 milliseconds);

} // namespace words
