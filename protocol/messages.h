#pragma once

#include "protocol.h"

#include <array>
#include <cstddef>

/**
 * One row for each message: its code, its name, its keys. Whoever needs such a fact reads it here: the
 * service its gates, clients names, docs/asyncapi.json and the tables of docs/protocol.md everything.
 *
 * All data are constants of static lifetime, so they may be read on any thread.
 */
namespace ai {

/// A row of constants elsewhere.
template <class Row>
struct Rows
{
    constexpr Rows() = default;
    template <int n>
    constexpr Rows(const Row (&rows)[n]) : first(rows), count(n)
    {
    }
    template <std::size_t n>
    constexpr Rows(const std::array<Row, n> &rows) : first(rows.data()), count(static_cast<int>(n))
    {
    }

    constexpr const Row *begin() const { return first; }
    constexpr const Row *end() const { return first + count; }
    constexpr bool empty() const { return count == 0; }

    const Row *first = nullptr;
    int count = 0;
};

enum class Type
{
    Any,
    Boolean,
    Integer,      ///< int
    Unsigned,     ///< unsigned int
    Long,         ///< 64-bit int
    Real,         ///< double
    Text,         ///< string
    Picture,      ///< string, a JPEG data text
    Map,          ///< with `keys`
    List,         ///< of maps with `keys`
    Codes,        ///< list of unsigned ints
    BooleanOrZero ///< a bool, or the int 0
};

struct Key
{
    const char *name;
    Type type;
    const char *meaning;
    bool optional = false; ///< whether it may be absent
    Rows<Key> keys = {};   ///< of the map, or of each map of the list
};

struct CommandRow
{
    Command command;
    const char *name;
    const char *meaning;
    State needs; ///< the least state in which it passes
    bool needsCamera;
    Rows<Key> request;  ///< keys of "data"
    Rows<Key> reply;    ///< keys of "rsp_data"; without any there is none in a success
    Rows<Event> events; ///< that follow from it
};

struct QuestionRow
{
    Question question;
    const char *name;
    const char *meaning;
    Rows<Key> reply; ///< keys of "rsp_data"
};

struct EventRow
{
    Event event;
    const char *name;
    const char *meaning;
    bool ofService; ///< belongs to no request
    Rows<Key> keys; ///< keys of "event_info"
};

struct ErrorRow
{
    Error error;
    const char *meaning;
    const char *remedy; ///< what a client does about it
};

/// The rows of several lists, one after the other.
template <class Row, int... n>
constexpr auto joined(const Row (&...lists)[n])
{
    std::array<Row, (n + ...)> all{};
    std::size_t i = 0;
    const auto append = [&](const auto &list) {
        for (const Row &row : list)
            all[i++] = row;
    };
    (append(lists), ...);
    return all;
}

inline constexpr bool optional = true;
inline constexpr bool needsCamera = true;

// Keys that stand in several messages.

inline constexpr Key studentKey{"stuID", Type::Text, "the student"};
inline constexpr Key xKey{"x", Type::Integer, "left edge, pixels of the frame"};
inline constexpr Key yKey{"y", Type::Integer, "upper edge, pixels of the frame"};
inline constexpr Key widthKey{"width", Type::Integer, "pixels of the frame"};
inline constexpr Key heightKey{"height", Type::Integer, "pixels of the frame"};

inline constexpr Key commandCodeKey{"command_code", Type::Unsigned, "the code of the request"};
inline constexpr Key codeKeys[] = {commandCodeKey};
inline constexpr Key studentKeys[] = {studentKey};
inline constexpr Key placeKeys[] = {studentKey, xKey, yKey, widthKey, heightKey};
inline constexpr Key stateKeys[] = {
    studentKey, {"state", Type::Integer, "class that the recogniser gave"}, xKey, yKey, widthKey, heightKey};

// The maps that carry them.

inline constexpr Key requestDataKeys[] = {
    {"command_code", Type::Integer, "which command (execute), or which question (info)"},
    {"data", Type::Any, "the parameters, as a rule a map", optional}};
inline constexpr Key requestKeys[] = {
    {"req_code", Type::Integer,
     "the kind: 1 open, 2 close, 3 execute, 4 info; absent means 0, which is no kind", optional},
    {"req_data", Type::Map, "for execute and info, else ignored", optional, requestDataKeys},
    {"req_id", Type::Text,
     "the request identifier; labels the events of the request and of an analysis that it starts. Without "
     "one they come as events of the service",
     optional},
    {"req_id2", Type::Any,
     "comes back as \"rsp_id\"; this is what ties a reply to its request. Absent, that is invalid", optional},
    {"req_deadline", Type::Long, "written to the log, has no effect", optional}};
inline constexpr Key replyKeys[] = {
    {"type", Type::Integer, "1"},
    {"rsp_id", Type::Any, "the request's \"req_id2\""},
    {"rsp_error", Type::Integer, "0 for success, else negative"},
    {"rsp_error_detail", Type::Text, "only in some replies; empty on success, but for a repeated open",
     optional},
    {"rsp_data", Type::Any,
     "the result, a map; only in some replies. Invalid where the state refused a command or a close, for a "
     "repeated open, an unknown kind and an exception",
     optional}};
inline constexpr Key openReplyKeys[] = {
    {"all_use_queue", Type::Boolean,
     "true: the client should send its next request when the last is answered"},
    {"info_use_queue", Type::Codes, "info codes to be queued; empty"},
    {"cmd_use_queue", Type::Codes, "execute codes to be queued; empty"},
    {"use_share_memory", Type::Boolean, "false: the service writes no frames of its own"},
    {"forbid_restart", Type::Boolean, "false: the client may restart the service"}};
inline constexpr Key eventKeys[] = {
    {"type", Type::Integer, "2"},
    {"msg", Type::Unsigned, "the event code"},
    {"event_info", Type::Map, "the payload"},
    {"event_type", Type::Text, "\"execute\" when it belongs to a request, \"service\" when not"},
    {"event_req_id", Type::Text, "the \"req_id\" of that request; \"0\" for \"service\""}};

// Commands.

inline constexpr Key recogniserKeys[] = {
    {"faceMtcnn", Type::Boolean, "face detection", optional},
    {"faceid", Type::Boolean, "face identification", optional},
    {"ssd", Type::Boolean, "body detection", optional},
    {"bodypose", Type::Boolean, "body pose, for attention", optional},
    {"handup", Type::Boolean, "raised hands", optional},
    {"emotion", Type::Boolean, "smiles", optional},
    {"faceAttr", Type::Boolean, "glasses", optional},
};
inline constexpr Key poseNetworkKeys[] = {
    {"cmu", Type::Boolean, "pose network; accepted, nothing is loaded for it", optional},
    {"cmuPose", Type::Boolean, "classes of the pose network; accepted, nothing is loaded for it", optional},
};
inline constexpr Key settingKeys[] = {
    {"identify", Type::Text, "first part of the names of recorded files; absent means empty", optional},
    {"enableEmotion", Type::Boolean,
     "look for smiles while attention runs; true at the start, absent leaves it as it is", optional},
};
inline constexpr auto initialiseKeys = joined(recogniserKeys, poseNetworkKeys, settingKeys);

inline constexpr Key externalFaceKeys[] = {studentKey,
                                           {"faceImg", Type::Picture, "the face, exactly 128 by 128 pixels"}};
inline constexpr Key setExternalFacesKeys[] = {
    {"galleries", Type::List, "one map for each student", !optional, externalFaceKeys}};
inline constexpr Key setExternalFacesReply[] = {
    commandCodeKey, {"failedStuList", Type::List, "those whose picture was refused", !optional, studentKeys}};

inline constexpr Key fetchFacesKeys[] = {
    {"stuID", Type::Text, "only this student, near the place where he was seen last; absent, every face",
     optional}};

inline constexpr Key registerKeys[] = {
    studentKey, {"faceImg", Type::Picture, "the face, exactly 128 by 128 pixels"}, xKey, yKey, widthKey,
    heightKey};
inline constexpr Key registerStudentsKeys[] = {
    {"galleries", Type::List, "one map for each student, with the face's place", !optional, registerKeys}};

inline constexpr Key replaceFaceKeys[] = {
    {"oldStuID", Type::Text, "the student"},
    {"faceImageBase64", Type::Picture, "the new face, exactly 128 by 128 pixels"},
    xKey,
    yKey,
    widthKey,
    heightKey};
inline constexpr Key renameStudentKeys[] = {{"oldStuID", Type::Text, "who he is"},
                                            {"newStuID", Type::Text, "who he shall be"}};

inline constexpr Key stopFollowingKeys[] = {studentKey,
                                            {"requestID", Type::Text, "the \"req_id\" of the start"}};
inline constexpr Key startGameKeys[] = {
    {"stuList", Type::List, "the players; absent, nobody", optional, studentKeys}};
inline constexpr Key startRecordingKeys[] = {
    {"recordPath", Type::Text,
     "an existing folder, or one to be made, on the service's machine, a relative one in its working folder; "
     "empty or absent: the folder Mirovane/Video on the disk with the most room, "
     "memory file systems left out",
     optional}};

inline constexpr Event facesEvents[] = {Event::Faces};
inline constexpr Event registeredEvents[] = {Event::Registered};
inline constexpr Event bestPicturesEvents[] = {Event::BestPictures};
inline constexpr Event handsEvents[] = {Event::Hands};
inline constexpr Event attentionEvents[] = {Event::Attention, Event::Smile};
inline constexpr Event followedEvents[] = {Event::Followed};
inline constexpr Event gameEvents[] = {Event::GameRegions, Event::Game};
inline constexpr Event gameRegionsEvents[] = {Event::GameRegions};
inline constexpr Event attributesEvents[] = {Event::Attributes};
inline constexpr Event recordingEvents[] = {Event::Recording};

// Two lines a row.
// clang-format off
inline constexpr CommandRow commands[] = {
    {Command::Initialise, "initialise", "load recognisers and apply settings",
     State::Open, !needsCamera, initialiseKeys, codeKeys, {}},
    {Command::SetExternalFaces, "set-external-faces", "set external faces",
     State::Initialised, !needsCamera, setExternalFacesKeys, setExternalFacesReply, {}},
    {Command::FetchFaces, "fetch-faces", "fetch the faces",
     State::Initialised, needsCamera, fetchFacesKeys, {}, facesEvents},
    {Command::RegisterStudents, "register-students", "register students",
     State::Initialised, needsCamera, registerStudentsKeys, {}, registeredEvents},
    {Command::ReplaceFace, "replace-face", "replace a student's face",
     State::Initialised, !needsCamera, replaceFaceKeys, {}, {}},
    {Command::RenameStudent, "rename-student", "rename a student",
     State::Initialised, !needsCamera, renameStudentKeys, {}, {}},
    {Command::DeleteStudent, "delete-student", "delete a student",
     State::Initialised, !needsCamera, studentKeys, {}, {}},
    {Command::BestPictures, "best-pictures", "best pictures",
     State::Initialised, !needsCamera, {}, {}, bestPicturesEvents},
    {Command::ClearExternalFaces, "clear-external-faces", "clear the external faces",
     State::Initialised, !needsCamera, {}, {}, {}},
    {Command::Reset, "reset", "reset",
     State::Open, !needsCamera, {}, {}, {}},
    {Command::StartHands, "start-hands", "start raised hands",
     State::Initialised, needsCamera, {}, {}, handsEvents},
    {Command::StopHands, "stop-hands", "stop raised hands",
     State::Initialised, needsCamera, {}, {}, {}},
    {Command::StartAttention, "start-attention", "start attention",
     State::Initialised, needsCamera, {}, {}, attentionEvents},
    {Command::StopAttention, "stop-attention", "stop attention",
     State::Initialised, needsCamera, {}, {}, {}},
    {Command::StartFollowing, "start-following", "start following a student",
     State::Initialised, needsCamera, studentKeys, {}, followedEvents},
    {Command::StopFollowing, "stop-following", "stop following a student",
     State::Initialised, needsCamera, stopFollowingKeys, {}, {}},
    {Command::StartGame, "start-game", "start the body game",
     State::Initialised, needsCamera, startGameKeys, {}, gameEvents},
    {Command::StopGame, "stop-game", "stop the body game",
     State::Initialised, needsCamera, startGameKeys, {}, gameRegionsEvents},
    {Command::Attributes, "attributes", "attributes, once",
     State::Initialised, needsCamera, {}, {}, attributesEvents},
    {Command::StartRecording, "start-recording", "start recording",
     State::Initialised, !needsCamera, startRecordingKeys, {}, recordingEvents},
    {Command::StopRecording, "stop-recording", "stop recording",
     State::Initialised, !needsCamera, {}, {}, {}},
};
// clang-format on

// Questions.

inline constexpr Key statusKeys[] = {{"status", Type::Integer, "0 closed, 1 open, 2 initialised"},
                                     {"version", Type::Text, "\"0.8\""},
                                     commandCodeKey};

inline constexpr QuestionRow questions[] = {{Question::Status, "status", "state and version", statusKeys}};

// Events.

inline constexpr Key galleryKeys[] = {
    {"gid", Type::Integer, "number of the face in the picture, from 0; 0 for a single student"},
    {"stuID", Type::Text, "who it is; empty when nobody known"},
    {"faceImg", Type::Picture, "128 by 128: the crop to register"},
    {"showImg", Type::Picture, "128 by 128: a wider crop to show"},
    xKey,
    yKey,
    widthKey,
    heightKey,
    {"isDetected", Type::BooleanOrZero,
     "true for a face that is enrolled, false for others; "
     "the int 0 when a single student was looked for at his place"}};
inline constexpr Key facesKeys[] = {
    {"image", Type::Picture, "the whole frame"},
    {"galleries", Type::List, "one map for each face", !optional, galleryKeys}};
/// What a student of each pose class adds to "concerntration"; a class beyond them adds nothing.
inline constexpr std::array<double, 5> poseWeights{0.9794, -0.5828, 1.4348, 0.877, 0.1807};
inline constexpr Key attentionKeys[] = {
    {"concerntration", Type::Real, "the sum of a weight for each student's pose class"},
    {"studentStates", Type::List, "the students found, \"state\" is the pose class", !optional, stateKeys}};
inline constexpr Key handsKeys[] = {
    {"handupStudents", Type::List, "the students with a hand up, \"state\" is 0", !optional, stateKeys}};
inline constexpr Key gameRegionsKeys[] = {{"functionGameShowRegion", Type::List,
                                           "the players, each with the region in which he is watched",
                                           !optional, placeKeys}};
inline constexpr Key boneKeys[] = {xKey, yKey};
inline constexpr Key playerKeys[] = {
    studentKey,
    {"bones", Type::List, "points in the order of the pose network; may be empty", !optional, boneKeys}};
inline constexpr Key gameKeys[] = {{"functionGameResult", Type::List, "the players", !optional, playerKeys}};
inline constexpr Key attributeKeys[] = {studentKey,
                                        {"clothColor", Type::Text, "always \"others\""},
                                        {"row", Type::Integer, "row of the classroom, 1 nearest the camera"},
                                        {"glass", Type::Boolean, "wears glasses"}};
inline constexpr Key attributesKeys[] = {
    {"studentsAttribute", Type::List, "every registered student", !optional, attributeKeys}};
inline constexpr Key registeredKeys[] = {
    {"successList", Type::List, "the students who were enrolled", !optional, studentKeys}};
inline constexpr Key recordingKeys[] = {{"videoName", Type::Text, "name of the file"},
                                        {"startRecordDate", Type::Text, "when it began, with doubled colons"},
                                        {"videoLocalPath", Type::Text, "folder and name of the file"}};
inline constexpr Key bestPictureKeys[] = {
    studentKey, {"bestFaceImg", Type::Picture, "128 by 128"}, {"score", Type::Real, "0 to 100"}};
inline constexpr Key bestPicturesKeys[] = {
    {"bestGalleries", Type::List, "every registered student", !optional, bestPictureKeys}};
inline constexpr Key videoKeys[] = {{"status", Type::Integer, "0 no frames come, 1 they come again"}};

inline constexpr EventRow events[] = {
    {Event::Faces, "faces", "the picture and the faces in it", false, facesKeys},
    {Event::Attention, "attention", "how attentive the class is", false, attentionKeys},
    {Event::Hands, "hands", "whose hand is up", false, handsKeys},
    {Event::Followed, "followed", "where a followed student is", false, placeKeys},
    {Event::GameRegions, "game-regions", "where the players of a game are watched", false, gameRegionsKeys},
    {Event::Game, "game", "how the players of a game stand", false, gameKeys},
    {Event::Attributes, "attributes", "what the students look like", false, attributesKeys},
    {Event::Registered, "registered", "who was enrolled", false, registeredKeys},
    {Event::Smile, "smile", "a student smiles", true, placeKeys},
    {Event::Recording, "recording", "a video file was begun", true, recordingKeys},
    {Event::BestPictures, "best-pictures", "the best picture of each student", false, bestPicturesKeys},
    {Event::Video, "video", "frames stopped coming, or come again", true, videoKeys},
};

// Errors.

inline constexpr ErrorRow errors[] = {
    {Error::None, "success", ""},
    {Error::Failed, "a recogniser or something inside failed", "look into the log of the service"},
    {Error::NoCamera, "no camera: the segment \"Camera\" has not been found since the open",
     "start the camera, with the `TMPDIR` of the service; right after an open, try again"},
    {Error::Unknown, "unknown kind or code",
     "with an invalid \"rsp_id\": the request did not parse, the log tells why"},
    {Error::BadParameters, "parameters missing or unusable", "compare them with what the command takes"},
    {Error::WrongState, "wrong state: not open, not initialised, already started, not started",
     "the detail says which: open, initialise, start or stop first"},
    {Error::NoAnalysis, "the analysis could not be made", "look into the log of the service"},
    {Error::NoStudent, "no such student, or no place is known of him",
     "ask for those who are enrolled (1026)"},
};

/// The row of a command; null for a code that is none.
constexpr const CommandRow *find(Command command)
{
    for (const CommandRow &row : commands) {
        if (row.command == command)
            return &row;
    }
    return nullptr;
}

constexpr const QuestionRow *find(Question question)
{
    for (const QuestionRow &row : questions) {
        if (row.question == question)
            return &row;
    }
    return nullptr;
}

constexpr const EventRow *find(Event event)
{
    for (const EventRow &row : events) {
        if (row.event == event)
            return &row;
    }
    return nullptr;
}

constexpr const ErrorRow *find(Error error)
{
    for (const ErrorRow &row : errors) {
        if (row.error == error)
            return &row;
    }
    return nullptr;
}

} // namespace ai
