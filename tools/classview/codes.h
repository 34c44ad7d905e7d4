#pragma once

#include <QtGlobal>

/// The numbers of the protocol that the viewer uses, all in one place. docs/protocol.md tells their meaning.
namespace codes {

enum Command : uint
{
    Status = 1001, ///< as info; as execute it is Initialise
    Initialise = 1001,
    FetchFaces = 1021,
    Register = 1022,
    ReplaceFace = 1023,
    Rename = 1024,
    Delete = 1025,
    BestPictures = 1026,
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

enum Event : uint
{
    FacesFound = 1011,
    Attention = 1012,
    RaisedHands = 1013,
    Followed = 1014,
    GameRegions = 1015,
    GameBones = 1016,
    AttributesFound = 1017,
    Registered = 1018,
    Smile = 1019,
    RecordingFile = 1020,
    BestPicturesSent = 1021,
    VideoState = 1022
};

enum ServiceState
{
    Closed = 0,
    Open = 1,
    Initialised = 2
};

enum Error
{
    Failed = -2,
    NoCamera = -9,
    Unknown = -10,
    BadParameters = -12,
    WrongState = -15,
    NoAnalysis = -1002,
    NoStudent = -1003
};

/// What a pose class adds to the attention of the class.
inline double attentionWeight(int poseClass)
{
    constexpr double weights[] = {0.9794, -0.5828, 1.4348, 0.877, 0.1807};
    return poseClass >= 0 && poseClass < int(sizeof weights / sizeof *weights) ? weights[poseClass] : 0;
}

} // namespace codes
