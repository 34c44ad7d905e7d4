#pragma once

#include "facelook.h"

#include <opencv2/core.hpp>

#include <vector>

namespace mirovane::open {

/// The upper bodies of these faces, in their order, clipped to a picture of the size: from above the hair to
/// the chest, two and a half faces wide. Where neighbours overlap they are cut, so that no body wholly covers
/// another's face; the own face keeps some room around it.
MIROVANE_SHARED std::vector<cv::Rect> bodiesOf(const std::vector<SeenFace> &faces, const cv::Size &size);

/// Whose body a rectangle of any body detector is: the place in the list of faces, or -1 when no face has its
/// middle in it. The rectangle may have been moved or grown by some pixels.
MIROVANE_SHARED int ownerOf(const cv::Rect &body, const std::vector<SeenFace> &faces, const cv::Size &size);

} // namespace mirovane::open
