#include "words.h"

#include "codes.h"

#include <QCoreApplication>

namespace words {

namespace {

QString tr(const char *text)
{
    return QCoreApplication::translate("words", text);
}

QString wrongState(const AiReply &reply)
{
    const QString &detail = reply.detail;
    if (detail.contains("not open"))
        return tr("The service is closed. Press “Open” first.");
    if (detail.contains("not init"))
        return tr("The recognisers are not loaded yet. Press “Load” first.");
    if (detail.contains("already"))
        return tr("This runs already; another program may have started it.");
    if (detail.contains("not start"))
        return tr("This does not run any more: it ended when a program left the service.");
    return tr("The service cannot do this now: %1").arg(detail);
}

} // namespace

QString command(AiClient::Kind kind, uint code)
{
    if (kind == AiClient::Open)
        return tr("Open the service");
    if (kind == AiClient::Close)
        return tr("Close the service");
    if (kind == AiClient::Info)
        return tr("Ask for the state");
    switch (code) {
    case codes::Initialise:
        return tr("Load the recognisers");
    case codes::FetchFaces:
        return tr("Look for faces");
    case codes::Register:
        return tr("Enrol");
    case codes::ReplaceFace:
        return tr("Replace a face");
    case codes::Rename:
        return tr("Rename a student");
    case codes::Delete:
        return tr("Delete a student");
    case codes::BestPictures:
        return tr("Fetch the students' pictures");
    case codes::Reset:
        return tr("Reset");
    case codes::StartHands:
        return tr("Start watching hands");
    case codes::StopHands:
        return tr("Stop watching hands");
    case codes::StartAttention:
        return tr("Start watching attention");
    case codes::StopAttention:
        return tr("Stop watching attention");
    case codes::StartFollowing:
        return tr("Follow a student");
    case codes::StopFollowing:
        return tr("Stop following");
    case codes::StartGame:
        return tr("Start the body game");
    case codes::StopGame:
        return tr("Stop the body game");
    case codes::Attributes:
        return tr("Look for rows and glasses");
    case codes::StartRecording:
        return tr("Start recording");
    case codes::StopRecording:
        return tr("Stop recording");
    default:
        return QString::number(code);
    }
}

QString event(uint code)
{
    switch (code) {
    case codes::FacesFound:
        return tr("Faces");
    case codes::Attention:
        return tr("Attention");
    case codes::RaisedHands:
        return tr("Raised hands");
    case codes::Followed:
        return tr("Followed student");
    case codes::GameRegions:
        return tr("Regions of the game");
    case codes::GameBones:
        return tr("Game");
    case codes::AttributesFound:
        return tr("Rows and glasses");
    case codes::Registered:
        return tr("Enrolled");
    case codes::Smile:
        return tr("Smile");
    case codes::RecordingFile:
        return tr("Recording");
    case codes::BestPicturesSent:
        return tr("Pictures of the students");
    case codes::VideoState:
        return tr("Video");
    default:
        return QString::number(code);
    }
}

QString failure(AiClient::Kind kind, uint code, const AiReply &reply)
{
    if (reply.ok())
        return {};
    if (reply.outcome == AiReply::TimedOut)
        return tr("The service has not answered in time. It may be busy: wait a little and try again.");
    if (reply.outcome == AiReply::Disconnected)
        return tr("The connection to the service was lost. The viewer connects again by itself.");
    switch (reply.error) {
    case codes::NoCamera:
        return tr("The service sees no camera yet. Start the camera, wait a second and try again.");
    case codes::BadParameters:
        if (kind == AiClient::Execute && code == codes::ReplaceFace)
            return tr("The new face was refused, and the old one is gone: enrol the student again.");
        return tr("Something is missing: a name, or a face.");
    case codes::WrongState:
        return wrongState(reply);
    case codes::NoStudent:
        if (code == codes::StartFollowing || code == codes::FetchFaces)
            return tr(
                "The service does not know where this student is. Watch hands or attention until the student "
                "has been seen, then try again.");
        return tr("Nobody is enrolled under this name. Refresh the list of students.");
    case codes::NoAnalysis:
        return tr("The analysis could not be made. Load the recognisers again.");
    case codes::Failed:
        if (kind == AiClient::Execute && code == codes::Initialise)
            return tr(
                "A recogniser could not be loaded: a file is missing in the model folder. The log of the "
                "service tells which.");
        return tr("A recogniser failed. Try again; the log of the service tells more.");
    case codes::Unknown:
        return tr("This service does not know the request: it is older than the viewer.");
    default:
        return tr("The service answers: %1").arg(reply.errorText());
    }
}

QString serviceState(int state)
{
    switch (state) {
    case codes::Closed:
        return tr("closed");
    case codes::Open:
        return tr("open");
    case codes::Initialised:
        return tr("ready");
    default:
        return tr("not running");
    }
}

QString attention(int poseClass)
{
    const double weight = codes::attentionWeight(poseClass);
    return weight > 0.5 ? tr("attentive") : weight > 0 ? tr("partly") : tr("elsewhere");
}

QString markKind(MarkKind kind)
{
    switch (kind) {
    case MarkKind::Face:
        return tr("Faces and names");
    case MarkKind::Body:
        return tr("Bodies");
    case MarkKind::Hand:
        return tr("Raised hands");
    case MarkKind::Attention:
        return tr("Attention");
    case MarkKind::Smile:
        return tr("Smiles");
    case MarkKind::Followed:
        return tr("Followed");
    case MarkKind::Game:
        return tr("Game");
    }
    return {};
}

QString age(qint64 milliseconds)
{
    const qint64 seconds = milliseconds / 1000;
    if (seconds < 1)
        return tr("now");
    return seconds < 100 ? tr("%1 s").arg(seconds) : tr("%1 min").arg(seconds / 60);
}

} // namespace words
