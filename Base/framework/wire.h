#pragma once

#include <QByteArray>
#include <QDataStream>
#include <QVariant>

#include <array>
#include <optional>

class QIODevice;

/**
 * The bytes on the local socket, the same in both directions.
 *
 * A frame is a signed 32-bit length N, the same number again as the length field of a QByteArray, and the
 * N bytes of that array, the payload: one QVariant, as a rule a QVariantMap. All numbers are big-endian.
 *
 * Threads: free functions without state; callable from any thread.
 *
 * Trust: the bytes come from another process. What a decoder allocates is in proportion to the bytes that
 * are there, whatever lengths and counts they claim.
 */
namespace wire {

/// Version of every stream on the socket and in the payload. Both sides have to agree on it; it does not
/// follow the Qt release that the program is built with.
constexpr QDataStream::Version streamVersion = QDataStream::Qt_5_12;

/// How many containers (maps, hashes, lists, variants) a value may lie in.
constexpr int maximumNesting = 64;

/// The payload of a frame: the value as a QDataStream writes a QVariant.
QByteArray encodePayload(const QVariant &value);

/// What stands before the payload in a frame: its two length fields.
std::array<char, 8> frameHead(int firstLength, int payloadSize);

/// A whole frame as the service sends it, both length fields included and equal.
QByteArray encodeFrame(const QVariant &value);

/// A whole frame as a client sends it: its first length field counts the second one too, so that the service
/// begins to read only when all of it is there (see takePayload).
QByteArray encodeRequest(const QVariant &value);

/// The value in a payload; bytes behind it are ignored. The result is invalid when the bytes do not parse:
/// - a length or count goes beyond the bytes, or containers are nested deeper than maximumNesting;
/// - a type is not one of those that a message may hold: maps, hashes, lists, variants, texts, bytes, lists
/// of
///   these two, bit arrays, dates and times without a zone, and the types of QtCore that have a fixed size
///   (numbers, points, rectangles, UUIDs and the like).
/// @param refusal is set to why the bytes do not parse, and to an empty text when they do
QVariant decodePayload(const QByteArray &payload, QString *refusal = nullptr);

/// A frame is looked at when more bytes than its first length field takes are there.
constexpr qint64 lengthFieldBytes = 4;

/// Takes the payload of a frame from a connection as far as it has arrived, without waiting for more. To be
/// called with more than lengthFieldBytes available, or in the middle of a frame.
///
/// The first length tells when to read and the second one how much, so a frame of which only the last bytes
/// are missing, or whose second length goes beyond what is there, is taken too early: the bytes are lost and
/// the payload is empty.
///
/// @param length the first length of the frame that the connection is in the middle of; empty between frames
/// @return false when less has arrived than the first length tells; call again when there is more
bool takePayload(QIODevice &device, std::optional<qint32> &length, QByteArray &payload);

} // namespace wire
