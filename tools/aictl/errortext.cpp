#include "errortext.h"

#include "eventtext.h"

namespace {

const char *wayOutOf(AiReply::Refusal refusal)
{
    switch (refusal) {
    case AiReply::NotOpen:
        return "run \"aictl open\" first";
    case AiReply::NotInitialised:
        return "run \"aictl open\" and \"aictl init\" first";
    case AiReply::AlreadyStarted:
        return "stop it first, or leave it running";
    case AiReply::NotStarted:
        return "it has ended, or was never started";
    case AiReply::OtherState:
        break;
    }
    return "docs/protocol.md tells when it may be asked for";
}

/// What the user of aictl does about it.
const char *remedy(const AiReply &reply)
{
    switch (ai::Error{reply.error}) {
    case ai::Error::Failed:
    case ai::Error::NoAnalysis:
        return "the service's log tells more";
    case ai::Error::NoCamera:
        return "start one, for example camerafeed, with the TMPDIR of the service, and try again";
    case ai::Error::Unknown:
        return "docs/protocol.md lists those that there are";
    case ai::Error::BadParameters:
        return "docs/protocol.md tells what the command takes";
    case ai::Error::WrongState:
        return wayOutOf(reply.refusal());
    case ai::Error::NoStudent:
        return "\"aictl students\" lists who is enrolled";
    default:
        return "docs/protocol.md may tell more";
    }
}

} // namespace

QString errorText(const AiReply &reply)
{
    QString text = visible(reply.errorText());
    if (reply.outcome == AiReply::Answered && !reply.ok())
        text += QStringLiteral(" (%1; %2)").arg(AiReply::meaningOf(reply.error), remedy(reply));
    return text;
}
