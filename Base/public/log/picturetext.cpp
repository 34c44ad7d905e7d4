#include "picturetext.h"

#include <QCryptographicHash>

namespace {

const QLatin1String mark("data:image/");
constexpr int longestKind = 20;
constexpr int hashDigits = 8;

bool isLatinOrDigit(QChar c)
{
    const ushort code = c.unicode();
    return (code >= 'a' && code <= 'z') || (code >= 'A' && code <= 'Z') || (code >= '0' && code <= '9');
}

/// Whether a character may stand inside of a picture's text. Blanks and line ends may: decoders skip them.
bool belongsToPicture(QChar c)
{
    switch (c.unicode()) {
    case '+':
    case '/':
    case '=':
    case '-':
    case '_':
    case '%':
    case ';':
    case ',':
    case '.':
        return true;
    default:
        return isLatinOrDigit(c) || c.isSpace();
    }
}

/// Where the picture ends that begins at `begin`. What follows it in the line is taken along where it could
/// still be base64: rather a word too few in the log than a piece of a face.
int endOfPicture(const QString &text, int begin)
{
    int end = begin;
    while (end < text.size() && belongsToPicture(text[end]))
        ++end;
    return end;
}

QString described(const QStringRef &picture)
{
    const QStringRef behind = picture.mid(mark.size());
    int kind = 0;
    while (kind < behind.size() && kind < longestKind && isLatinOrDigit(behind[kind]))
        ++kind;
    const QByteArray hash = QCryptographicHash::hash(picture.toLatin1(), QCryptographicHash::Sha1).toHex();
    return QStringLiteral("<picture %1, %2 characters, %3>")
        .arg(behind.left(kind), QString::number(picture.size()), QString::fromLatin1(hash.left(hashDigits)));
}

} // namespace

QString log_text::withoutPictures(const QString &text)
{
    int begin = text.indexOf(mark);
    if (begin < 0)
        return text;
    QString result;
    int written = 0;
    for (; begin >= 0; begin = text.indexOf(mark, written)) {
        const int end = endOfPicture(text, begin + mark.size());
        result += text.midRef(written, begin - written) + described(text.midRef(begin, end - begin));
        written = end;
    }
    return result + text.midRef(written);
}

bool log_text::hasPicture(std::string_view text)
{
    // Its slash is the rarest of the mark's characters in a log.
    const std::string_view searched(mark.latin1(), std::size_t(mark.size()));
    for (auto slash = text.find('/'); slash != std::string_view::npos; slash = text.find('/', slash + 1)) {
        const std::size_t end = slash + 1;
        if (end >= searched.size() && text.substr(end - searched.size(), searched.size()) == searched)
            return true;
    }
    return false;
}
