#include "words.h"

#include "messages.h"
#include "servicelink.h"

#include <QCoreApplication>

namespace words {

namespace {

QString tr(const char *text)
{
    return QCoreApplication::translate("words", text);
}

QString wrongState(const AiReply &reply)
{
    switch (reply.refusal()) {
    case AiReply::NotOpen:
        return tr("The service is closed. Press “Open” first.");
    case AiReply::NotInitialised:
        return tr("The recognisers are not loaded yet. Press “Load” first.");
    case AiReply::AlreadyStarted:
        return tr("This runs already; another program may have started it.");
    case AiReply::NotStarted:
        return tr("This does not run any more: it ended when a program left the service.");
    case AiReply::OtherState:
        break;
    }
    return tr("The service cannot do this now: %1").arg(reply.detail);
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
    switch (ai::Command{code}) {
    case ai::Command::Initialise:
        return tr("Load the recognisers");
    case ai::Command::FetchFaces:
        return tr("Look for faces");
    case ai::Command::RegisterStudents:
        return tr("Enrol");
    case ai::Command::ReplaceFace:
        return tr("Replace a face");
    case ai::Command::RenameStudent:
        return tr("Rename a student");
    case ai::Command::DeleteStudent:
        return tr("Delete a student");
    case ai::Command::BestPictures:
        return tr("Fetch the students' pictures");
    case ai::Command::Reset:
        return tr("Reset");
    case ai::Command::StartHands:
        return tr("Start watching hands");
    case ai::Command::StopHands:
        return tr("Stop watching hands");
    case ai::Command::StartAttention:
        return tr("Start watching attention");
    case ai::Command::StopAttention:
        return tr("Stop watching attention");
    case ai::Command::StartFollowing:
        return tr("Follow a student");
    case ai::Command::StopFollowing:
        return tr("Stop following");
    case ai::Command::StartGame:
        return tr("Start the body game");
    case ai::Command::StopGame:
        return tr("Stop the body game");
    case ai::Command::Attributes:
        return tr("Look for rows and glasses");
    case ai::Command::StartRecording:
        return tr("Start recording");
    case ai::Command::StopRecording:
        return tr("Stop recording");
    default:
        return QString::number(code);
    }
}

QString event(uint code)
{
    switch (ai::Event{code}) {
    case ai::Event::Faces:
        return tr("Faces");
    case ai::Event::Attention:
        return tr("Attention");
    case ai::Event::Hands:
        return tr("Raised hands");
    case ai::Event::Followed:
        return tr("Followed student");
    case ai::Event::GameRegions:
        return tr("Regions of the game");
    case ai::Event::Game:
        return tr("Game");
    case ai::Event::Attributes:
        return tr("Rows and glasses");
    case ai::Event::Registered:
        return tr("Enrolled");
    case ai::Event::Smile:
        return tr("Smile");
    case ai::Event::Recording:
        return tr("Recording");
    case ai::Event::BestPictures:
        return tr("Pictures of the students");
    case ai::Event::Video:
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
    const ai::Command command{kind == AiClient::Execute ? code : 0};
    switch (ai::Error{reply.error}) {
    case ai::Error::NoCamera:
        return tr("The service sees no camera yet. Start the camera, wait a second and try again.");
    case ai::Error::BadParameters:
        if (command == ai::Command::ReplaceFace)
            return tr("The new face was refused, and the old one is gone: enrol the student again.");
        return tr("Something is missing: a name, or a face.");
    case ai::Error::WrongState:
        return wrongState(reply);
    case ai::Error::NoStudent:
        if (command == ai::Command::StartFollowing || command == ai::Command::FetchFaces)
            return tr(
                "The service does not know where this student is. Watch hands or attention until the student "
                "has been seen, then try again.");
        return tr("Nobody is enrolled under this name. Refresh the list of students.");
    case ai::Error::NoAnalysis:
        return tr("The analysis could not be made. Load the recognisers again.");
    case ai::Error::Failed:
        if (command == ai::Command::Initialise)
            return tr(
                "A recogniser could not be loaded: a file is missing in the model folder. The log of the "
                "service tells which.");
        return tr("A recogniser failed. Try again; the log of the service tells more.");
    case ai::Error::Unknown:
        return tr("This service does not know the request: it is older than the viewer.");
    default:
        return tr("The service answers: %1").arg(reply.errorText());
    }
}

QString serviceState(int state)
{
    if (state == ServiceLink::noAnswer)
        return tr("does not answer");
    switch (ai::State{state}) {
    case ai::State::Closed:
        return tr("closed");
    case ai::State::Open:
        return tr("open");
    case ai::State::Initialised:
        return tr("ready");
    default:
        return tr("not running");
    }
}

double attentionWeight(int poseClass)
{
    const auto &weights = ai::poseWeights;
    return poseClass >= 0 && poseClass < int(weights.size()) ? weights[std::size_t(poseClass)] : 0;
}

QString attention(int poseClass)
{
    const double weight = attentionWeight(poseClass);
    return weight > 0.5 ? tr("attentive") : weight > 0 ? tr("partly") : tr("elsewhere");
}

QString portraitProblem(PortraitMaker::Problem problem)
{
    switch (problem) {
    case PortraitMaker::NoPicture:
        return tr("This file is not a picture.");
    case PortraitMaker::NoFace:
        return tr("No face was found in this picture.");
    case PortraitMaker::NoCascades:
        return tr("Faces cannot be found in files: the package opencv-data is not installed.");
    case PortraitMaker::None:
        break;
    }
    return {};
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
