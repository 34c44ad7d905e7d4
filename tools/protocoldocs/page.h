#pragma once

#include <QString>

/**
 * The page with its tables made anew from the rows of messages.h. A table that is made stands behind a
 * comment that names it:
 *
 *   <!-- table: commands -->, <!-- table: errors -->, <!-- table: NAME -->
 *
 * where NAME is that of a command, question or event with "-request", "-reply" or "-event" behind it, as in
 * asyncapi.json, or of the envelopes "request", "reply", "open-reply", "event"; a dot and a key behind it
 * name the maps of that key.
 * @param problems gets a line for each comment that names nothing
 */
QString withTables(const QString &page, QString *problems);
