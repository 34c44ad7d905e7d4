#include "errortext.h"

#include "eventtext.h"
#include "messages.h"

namespace {

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
        if (reply.detail == QLatin1String("aiservice not open"))
            return "run \"aictl open\" first";
        if (reply.detail == QLatin1String("aiservice not init"))
            return "run \"aictl open\" and \"aictl init\" first";
        return "what is to be stopped has not been started, or has been started already";
    case ai::Error::NoStudent:
        return "\"aictl students\" lists who is enrolled";
    default:
        return "docs/protocol.md may tell more";
    }
}

/// The beginning of what the code means; the rest of it is for a page.
QString meaning(const AiReply &reply)
{
    const ai::ErrorRow *row = ai::find(ai::Error{reply.error});
    return row ? QString(row->meaning).section(':', 0, 0) : "a code that this client doesn't know";
}

} // namespace

QString errorText(const AiReply &reply)
{
    QString text = visible(reply.errorText());
    if (reply.outcome == AiReply::Answered && !reply.ok()) {
        text += QStringLiteral(" (%1; %2)").arg(meaning(reply), remedy(reply));
    }
    return text;
}
