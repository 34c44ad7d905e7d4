#pragma once

#include <QDateTime>
#include <QList>
#include <QString>

/**
 * Hours of the week in local time: "always", "never", or spans between commas such as
 * "mon-fri 08:00-12:30, sat 09:00-11:00". Without a day a span holds every day; one that ends at or before
 * its beginning goes on into the next day.
 */
class Hours
{
public:
    /// False, with a reason, for a text that is none of these.
    bool parse(const QString &text, QString &error);

    bool isNever() const { return !m_always && m_spans.isEmpty(); }
    bool contain(const QDateTime &time) const;

private:
    struct Span
    {
        int firstDay, lastDay; // 1 Monday to 7 Sunday
        QTime begin, end;
    };

    bool m_always = false;
    QList<Span> m_spans;
};
