#include "arguments.h"

#include <limits>

bool readSeconds(const QString &text, int *milliseconds)
{
    bool isNumber = false;
    const double value = text.toDouble(&isNumber) * 1000;
    const bool fits = isNumber && value >= 0 && value <= std::numeric_limits<int>::max();
    if (fits)
        *milliseconds = static_cast<int>(value);
    return fits;
}

QStringList splitLine(const QString &line, QString *error)
{
    QStringList words;
    QString word;
    bool inWord = false;
    QChar quote;
    for (int i = 0; i < line.size(); ++i) {
        const auto c = line[i];
        if (c == '\\' && quote != '\'' && i + 1 < line.size()) {
            word += line[++i];
            inWord = true;
        } else if (!quote.isNull()) {
            if (c == quote)
                quote = QChar();
            else
                word += c;
        } else if (c == '\'' || c == '"') {
            quote = c;
            inWord = true;
        } else if (!c.isSpace()) {
            word += c;
            inWord = true;
        } else if (inWord) {
            words.append(word);
            word.clear();
            inWord = false;
        }
    }
    if (!quote.isNull())
        *error = QStringLiteral("a quote %1 is not closed").arg(quote);
    if (inWord)
        words.append(word);
    return words;
}
