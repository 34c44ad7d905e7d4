#pragma once

#include <QByteArray>
#include <QList>

#include <bitset>
#include <string_view>
#include <unordered_set>

/**
 * Looks for what should be gone: pieces of pictures, as bytes of their JPEG file or of its base64 text, and
 * names. A piece is found wherever in a file 64 bytes in a row of a picture are left; what all JPEG files
 * have in common, their headers, is not looked for.
 *
 * Threads: one. The pieces belong to the object.
 */
class TraceSearch
{
public:
    /// False for a picture that is too plain to be told from others; it is not looked for then.
    bool addPicture(const QByteArray &jpegFile);
    int pictureCount() const { return m_pictures; }

    bool findsPicture(std::string_view content) const;
    /// Whether the name stands there as a word of its own.
    static bool findsName(std::string_view content, const QByteArray &name);
    /// Whether a row of the store begins with this name, also one that was deleted.
    /// @param others names that are in the store, and may end in this one
    static bool findsRow(std::string_view content, const QByteArray &name, const QList<QByteArray> &others);

private:
    bool addPieces(const QByteArray &bytes, int from);

    int m_pictures = 0;
    QList<QByteArray> m_sources;
    std::unordered_set<std::string_view> m_pieces; ///< views into the sources
    std::bitset<65536> m_starts;                   ///< the first two bytes of pieces
};
