#pragma once

#include <type_traits>

/**
 * The numbers of the protocol: kinds of requests, commands, events, errors, states. What belongs to each
 * command and event, and its name, is in messages.h; docs/protocol.md tells it in words.
 *
 * A value that came over the socket may be none of those listed.
 */
namespace ai {

/// "req_code" of a request.
enum class Kind : int
{
    Open = 1,
    Close = 2,
    Execute = 3,
    Info = 4
};

/// "type" of a message of the service.
enum class MessageType : int
{
    Reply = 1,
    Event = 2
};

/// "command_code" of a request of the kind Execute.
enum class Command : unsigned
{
    Initialise = 1001,
    SetExternalFaces = 1020,
    FetchFaces = 1021,
    RegisterStudents = 1022,
    ReplaceFace = 1023,
    RenameStudent = 1024,
    DeleteStudent = 1025,
    BestPictures = 1026,
    ClearExternalFaces = 1027,
    Reset = 1028,
    StartHands = 1030,
    StopHands = 1031,
    StartAttention = 1032,
    StopAttention = 1033,
    StartFollowing = 1034,
    StopFollowing = 1035,
    StartGame = 1036,
    StopGame = 1037,
    Attributes = 1038,
    StartRecording = 1039,
    StopRecording = 1040
};

/// "command_code" of a request of the kind Info.
enum class Question : unsigned
{
    Status = 1001
};

/// "msg" of an event.
enum class Event : unsigned
{
    Faces = 1011,
    Attention = 1012,
    Hands = 1013,
    Followed = 1014,
    GameRegions = 1015,
    Game = 1016,
    Attributes = 1017,
    Registered = 1018,
    Smile = 1019,
    Recording = 1020,
    BestPictures = 1021,
    Video = 1022
};

/// "rsp_error" of a reply.
enum class Error : int
{
    None = 0,
    Failed = -2,
    NoCamera = -9,
    Unknown = -10,
    BadParameters = -12,
    WrongState = -15,
    NoAnalysis = -1002,
    NoStudent = -1003
};

/// "status" in the reply to Question::Status.
enum class State : int
{
    Closed = 0,
    Open = 1,
    Initialised = 2
};

/// The number of one of them.
template <class Enumeration>
constexpr std::underlying_type_t<Enumeration> code(Enumeration value)
{
    return static_cast<std::underlying_type_t<Enumeration>>(value);
}

} // namespace ai
