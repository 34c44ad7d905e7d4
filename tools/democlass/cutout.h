#pragma once

#include "portraits.h"
#include "sprite.h"

/// Cuts the person out, scaled to the face width; the anchor is the middle of the face.
Sprite cutOut(const Portrait &portrait, const cv::Mat &photograph);
