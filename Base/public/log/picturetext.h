#pragma once

#include <QString>

#include <string_view>

/**
 * Pictures in lines of the log. They are those of children, and a log is kept and passed on, so no line shows
 * one. MyLog applies this to every line; who cuts a text before it logs it applies it first.
 *
 * Threads: free functions without state.
 */
namespace log_text {

/// The text with each picture in it ("data:image/..." with its base64) written as its kind, its length in
/// characters and a short hash, by which the same picture is known again: "<picture jpg, 21504 characters,
/// 3f2a91c0>".
QString withoutPictures(const QString &text);

/// Whether a picture begins in a text in UTF-8.
bool hasPicture(std::string_view text);

} // namespace log_text
