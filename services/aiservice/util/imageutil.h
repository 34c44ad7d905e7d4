#pragma once

#include <opencv2/core.hpp>

#include <QImage>
#include <QString>

/**
 * Conversions between the three forms of a picture: the QImage over a frame, the cv::Mat that the
 * recognisers take (CV_8UC3, blue-green-red), and the JPEG data text that travels to and from the client
 * ("data:image/jpg;base64," and the base64 of a JPEG file). And the one filter of the system.
 *
 * Threads: free functions without state, safe on any thread. Errors: an empty result, never an exception
 * for a picture or text of the wrong kind; the caller logs what that means for it.
 */
namespace ai_image {

/// A CV_8UC3 copy of the picture; it does not depend on the image's memory afterwards. Takes Format_RGB888
/// (frames) and Format_RGB32 (decoded JPEGs, with a warning in the log each time); any other format gives
/// an empty matrix.
cv::Mat convertQImage2Mat(const QImage &image);

/// The picture in a JPEG data text, with the type "image/jpg" or "image/jpeg". Empty for another type, for
/// anything that is no colour JPEG, and for a JPEG of more than 8192 pixels a side, of more pixels than so
/// many bytes can hold, or of more than 64 scans: these are refused before memory is taken for the pixels.
cv::Mat convertBase642Mat(const QString &text);

/// The JPEG data text (default quality) of a CV_8UC3 or CV_8UC4 matrix. Any other type gives the bare prefix.
QString convertMat2Base64(const cv::Mat &mat);

/// Smooths and brightens a head crop (CV_8UC3) for display. dst may be src. An empty src, or one of another
/// type, leaves dst as it is.
void beautifyFace(const cv::Mat &src, cv::Mat &dst);

} // namespace ai_image
