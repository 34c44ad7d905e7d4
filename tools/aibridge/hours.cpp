#include "hours.h"

#include <QRegularExpression>
#include <QStringList>

namespace {

const QStringList days{"mon", "tue", "wed", "thu", "fri", "sat", "sun"};

bool isBetween(int day, int first, int last)
{
    return first <= last ? day >= first && day <= last : day >= first || day <= last;
}

} // namespace

bool Hours::parse(const QString &text, QString &error)
{
    m_always = text == "always";
    m_spans.clear();
    if (m_always || text == "never")
        return true;
    static const QRegularExpression form(
        "^(?:([a-z]{3})(?:-([a-z]{3}))?\\s+)?(\\d{1,2}:\\d{2})-(\\d{1,2}:\\d{2})$");
    for (const QString &part : text.toLower().split(',')) {
        const auto match = form.match(part.trimmed());
        const QString first = match.captured(1), last = match.captured(2);
        Span span{first.isEmpty() ? 1 : days.indexOf(first) + 1, 7, {}, {}};
        if (!first.isEmpty())
            span.lastDay = last.isEmpty() ? span.firstDay : days.indexOf(last) + 1;
        span.begin = QTime::fromString(match.captured(3), "H:mm");
        span.end = match.captured(4) == "24:00" ? QTime(0, 0) : QTime::fromString(match.captured(4), "H:mm");
        if (span.firstDay == 0 || span.lastDay == 0 || !span.begin.isValid() || !span.end.isValid()) {
            error = QStringLiteral("\"%1\" is not always, never, or hours as in mon-fri 08:00-13:00")
                        .arg(part.trimmed());
            return false;
        }
        m_spans.append(span);
    }
    return true;
}

bool Hours::contain(const QDateTime &time) const
{
    if (m_always)
        return true;
    const int today = time.date().dayOfWeek(), yesterday = today == 1 ? 7 : today - 1;
    for (const Span &span : m_spans) {
        const bool overnight = span.end <= span.begin;
        const bool hasBegun = time.time() >= span.begin, hasEnded = time.time() >= span.end;
        if (isBetween(today, span.firstDay, span.lastDay) && hasBegun && (overnight || !hasEnded))
            return true;
        if (overnight && isBetween(yesterday, span.firstDay, span.lastDay) && !hasEnded)
            return true;
    }
    return false;
}
