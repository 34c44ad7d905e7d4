#pragma once

#include <opencv2/core.hpp>

#include <QByteArray>
#include <QString>
#include <QVariant>

/// Pictures as they travel in requests and events: a JPEG file as text.
namespace picture {

/// @param picture CV_8UC3, blue-green-red
QString toDataText(const cv::Mat &picture);
QString toDataText(const QByteArray &jpegFile);

/// The JPEG file inside a text; empty when it is no such text.
QByteArray jpegOf(const QString &dataText);

/// The picture of a text, CV_8UC3 in blue-green-red order; empty when it does not decode.
cv::Mat fromDataText(const QString &dataText);

/// Reads a picture file into CV_8UC3, blue-green-red; empty when it cannot be read.
cv::Mat load(const QString &path);

/// Writes a file, making its folder. False, with *error, when that fails.
bool save(const QString &path, const QByteArray &content, QString *error);
bool save(const QString &path, const cv::Mat &picture, QString *error);

/// A copy of a value in which each picture text is replaced by its kind and length, for people to read.
QVariant withoutPictures(const QVariant &value);

} // namespace picture
