#pragma once

#include "fakeservice.h"

#include <QByteArray>

#include <opencv2/core.hpp>

/// What the fake services of the tests of both clients show: a picture with two faces, one of them anna's.
namespace classroom {

cv::Mat frame();
/// A JPEG file of 128 by 128 pixels.
QByteArray faceFile();
/// The payload of event 1011.
QVariantMap gallery();
/// Success for every request; with the events of the documented commands where these have one, sent before
/// the reply. Enrols everybody but "refused".
QVariantList answer(const QVariantMap &request);

} // namespace classroom
