#include "tracesearch.h"

#include <algorithm>
#include <cctype>

namespace {

constexpr int pieceSize = 32;
/// Fewer different bytes than this are a plain area, as any picture may have one.
constexpr std::size_t leastVariety = 12;

std::size_t startOf(const char *bytes)
{
    return std::size_t(static_cast<unsigned char>(bytes[0])) * 256 + static_cast<unsigned char>(bytes[1]);
}

bool isPlain(std::string_view piece)
{
    std::bitset<256> seen;
    for (const char byte : piece)
        seen.set(static_cast<unsigned char>(byte));
    return seen.count() < leastVariety;
}

bool isOfWord(char byte)
{
    const auto code = static_cast<unsigned char>(byte);
    return code >= 128 || std::isalnum(code) || code == '_' || code == '-';
}

template <class Accept>
bool finds(std::string_view content, std::string_view text, Accept accept)
{
    if (text.empty())
        return false;
    for (auto at = content.find(text); at != std::string_view::npos; at = content.find(text, at + 1)) {
        if (accept(at))
            return true;
    }
    return false;
}

std::string_view viewOf(const QByteArray &bytes)
{
    return {bytes.constData(), std::size_t(bytes.size())};
}

} // namespace

bool TraceSearch::addPicture(const QByteArray &jpegFile)
{
    const int scan = std::max(0, jpegFile.indexOf("\xff\xda"));
    constexpr int scanHeader = 14;
    bool isTelling = addPieces(jpegFile, scan + scanHeader);
    // Three bytes become four letters: inside of another text they may begin at any of the three.
    for (int phase = 0; phase < 3; ++phase)
        isTelling |= addPieces(jpegFile.mid(phase).toBase64(), (scan + scanHeader) / 3 * 4 + 4);
    m_pictures += isTelling ? 1 : 0;
    return isTelling;
}

bool TraceSearch::addPieces(const QByteArray &bytes, int from)
{
    m_sources.append(bytes);
    const std::string_view source = viewOf(m_sources.last());
    bool added = false;
    for (auto at = std::size_t(from); at + pieceSize <= source.size(); at += pieceSize) {
        const std::string_view piece = source.substr(at, pieceSize);
        if (isPlain(piece))
            continue;
        m_pieces.insert(piece);
        m_starts.set(startOf(piece.data()));
        added = true;
    }
    return added;
}

bool TraceSearch::findsPicture(std::string_view content) const
{
    for (std::size_t at = 0; at + pieceSize <= content.size(); ++at) {
        if (m_starts[startOf(content.data() + at)] && m_pieces.count(content.substr(at, pieceSize)) != 0)
            return true;
    }
    return false;
}

bool TraceSearch::findsName(std::string_view content, const QByteArray &name)
{
    return finds(content, viewOf(name), [&](std::size_t at) {
        const std::size_t end = at + std::size_t(name.size());
        return (at == 0 || !isOfWord(content[at - 1])) && (end == content.size() || !isOfWord(content[end]));
    });
}

bool TraceSearch::findsRow(std::string_view content, const QByteArray &name, const QList<QByteArray> &others)
{
    // A row's texts follow each other without a gap: the name, then the picture.
    return finds(content, viewOf(name + "data:image/"), [&](std::size_t at) {
        const std::size_t end = at + std::size_t(name.size());
        return std::none_of(others.begin(), others.end(), [&](const QByteArray &other) {
            const auto size = std::size_t(other.size());
            return other != name && size <= end && content.substr(end - size, size) == viewOf(other);
        });
    });
}
