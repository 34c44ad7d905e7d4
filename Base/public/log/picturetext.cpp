#include "picturetext.h"

#include <QCryptographicHash>

#include <string_view>

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

QByteArray log_text::toBytes(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    const std::string_view searched(bytes.constData(), std::size_t(bytes.size()));
    return searched.find(mark.latin1()) == std::string_view::npos ? bytes : withoutPictures(text).toUtf8();
}
