#pragma once

#include "messages.h"

#include <QMap>
#include <QString>
#include <QStringList>

/// The words that stand for the service's codes in the bridge's topics and configuration. Most are the names
/// in messages.h.
namespace codes {

/// The word of an event's topic; its number for an event without one.
QString eventWord(uint code);

/// The commands that a broker can be allowed to send, by word.
const QMap<QString, ai::Command> &commandWords();

/// An analysis that can be kept running.
struct Analysis
{
    QString word;
    ai::Command start;
    ai::Command stop;
    ai::Event event;
    QStringList recognisers; ///< keys of the initialise command
};
const QList<Analysis> &analyses();

/// The keys of the initialise command that load a recogniser.
const QStringList &recognisers();

} // namespace codes
