#include "logline.h"

#include <charconv>

namespace {

template <class Number>
void appendNumber(QString &text, Number number, int base)
{
    char digits[24];
    const char *const end = std::to_chars(std::begin(digits), std::end(digits), number, base).ptr;
    text += QLatin1String(digits, static_cast<int>(end - digits));
}

} // namespace

void log_line::append(QString &text, const QString &part)
{
    text += part;
}

void log_line::append(QString &text, const char *part)
{
    text += QLatin1String(part);
}

void log_line::append(QString &text, const void *part)
{
    text += QLatin1String("0x");
    appendNumber(text, reinterpret_cast<quintptr>(part), 16);
}

void log_line::append(QString &text, int part)
{
    appendNumber(text, part, 10);
}

void log_line::append(QString &text, unsigned part)
{
    appendNumber(text, part, 10);
}

void log_line::append(QString &text, qint64 part)
{
    appendNumber(text, part, 10);
}
