#pragma once

#include "portraits.h"
#include "sprite.h"

/// Cuts the person out, scaled to the face width; the anchor is the middle of the face.
Sprite cutOut(const Portrait &portrait, const cv::Mat &photograph);

/// A raised forearm with the palm to the front, for a head of that face width. The hand comes from the
/// photograph and gets the skin colour of the person. The anchor is the elbow.
/// @param mirrored the thumb points to the right
Sprite raisedArm(const Portrait &portrait, const cv::Mat &photograph, const cv::Mat &handPhotograph,
                 bool mirrored);
