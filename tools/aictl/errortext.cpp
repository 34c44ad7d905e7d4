#include "errortext.h"

#include "eventtext.h"

namespace {

struct Explanation
{
    const char *meaning;
    const char *remedy;
};

Explanation explain(const AiReply &reply)
{
    switch (reply.error) {
    case -2:
        return {"a recogniser or something inside failed", "the service's log tells more"};
    case -9:
        return {"no camera",
                "start one, for example camerafeed, with the TMPDIR of the service, and try again"};
    case -10:
        return {"unknown kind or code", "docs/protocol.md lists those that there are"};
    case -12:
        return {"parameters missing or unusable", "docs/protocol.md tells what the command takes"};
    case -15:
        if (reply.detail == QLatin1String("aiservice not open"))
            return {"wrong state", "run \"aictl open\" first"};
        if (reply.detail == QLatin1String("aiservice not init"))
            return {"wrong state", "run \"aictl open\" and \"aictl init\" first"};
        return {"wrong state", "what is to be stopped has not been started, or has been started already"};
    case -1002:
        return {"the analysis could not be made", "the service's log tells more"};
    case -1003:
        return {"no such student", "\"aictl students\" lists who is enrolled"};
    default:
        return {"a code that this client doesn't know", "docs/protocol.md may tell more"};
    }
}

} // namespace

QString errorText(const AiReply &reply)
{
    QString text = visible(reply.errorText());
    if (reply.outcome == AiReply::Answered && !reply.ok()) {
        const Explanation explanation = explain(reply);
        text += QStringLiteral(" (%1; %2)").arg(explanation.meaning, explanation.remedy);
    }
    return text;
}
