#pragma once

#include "portraits.h"
#include "sprite.h"

/// What somebody does with an arm.
enum class Gesture
{
    None,
    High,       ///< raised: stretched up beside the head
    Bent,       ///< raised: the elbow at the side, the forearm up
    Aside,      ///< raised: stretched up and out, the hand seen from its edge
    AtChin,     ///< not raised: the head rests on the hand
    InHair,     ///< not raised: the hand lies on top of the head
    BehindHead, ///< not raised: both hands lie behind the head, the elbows are out
};

/// Whether a teacher would take it for a raised hand.
bool isRaised(Gesture gesture);

/// Whether the arms lie behind the person's picture.
bool isBehind(Gesture gesture);

/// The arm, or both arms, of a person in that gesture: painted sleeves of human length from the shoulder to
/// the wrist, and the photographed hand in the skin colour of the person. The anchor is the middle of the
/// face; the scale is that of cutOut.
/// @param side -1: the arm left of the head in the picture, 1: right of it; no matter for both arms
Sprite arms(const Portrait &portrait, const cv::Mat &photograph, const cv::Mat &handPhotograph,
            Gesture gesture, int side);
