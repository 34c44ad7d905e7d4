#pragma once

#include <QCommandLineParser>

/// The arguments of one command line of aictl, or of one line of a session.
struct Arguments
{
    QStringList positional;
    const QCommandLineParser &parser;

    /// A positional argument, empty when it is not there.
    QString at(int index) const { return positional.value(index); }
    bool has(const QString &option) const { return parser.isSet(option); }
    QString value(const QString &option) const { return parser.value(option); }
};

/// A time in seconds, as milliseconds. False for what is not a number, negative, or more than an int holds.
bool readSeconds(const QString &text, int *milliseconds);

/// Splits a session's line at blanks as a shell does: text in single or double quotes stays together, a
/// backslash outside single quotes takes the next character as it is. JSON goes into single quotes.
/// @return the words; *error tells of a quote that is not closed
QStringList splitLine(const QString &line, QString *error);
