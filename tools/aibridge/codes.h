#pragma once

#include <QMap>
#include <QString>
#include <QVariantMap>

/// What the bridge knows of the service's codes, and the words that stand for them in topics and
/// configuration.
namespace codes {

enum Info : uint
{
    Status = 1001
};

enum Command : uint
{
    Initialise = 1001,
    BestPictures = 1026,
    StartHands = 1030,
    StartAttention = 1032,
    StartRecording = 1039,
    StopRecording = 1040
};

/// An analysis ends by the code after the one that starts it.
constexpr uint stopOf(uint startCode)
{
    return startCode + 1;
}

enum Event : uint
{
    Attention = 1012,
    Hands = 1013,
    Registered = 1018,
    Students = 1021,
    Video = 1022
};

enum State : int
{
    Closed = 0,
    Opened = 1,
    Initialised = 2
};

constexpr int noCamera = -9;
constexpr int wrongState = -15;

/// The word of an event's topic; its number for an event without one.
QString eventWord(uint code);

/// The codes of the commands that a broker can be allowed to send, by word.
const QMap<QString, uint> &commandWords();

/// An error code of a reply in words.
QString errorWords(int error);

/// An analysis that can be kept running.
struct Analysis
{
    QString word;
    uint startCode;
    uint eventCode;
    QStringList recognisers; ///< keys of the initialise command
};
const QList<Analysis> &analyses();

/// The keys of the initialise command that load a recogniser.
const QStringList &recognisers();

} // namespace codes
