#pragma once

#include <opencv2/core.hpp>

/**
 * A cut-out picture that can be laid over a frame.
 *
 * A plain value; copies share their pixels, which nobody changes after the sprite is made.
 */
struct Sprite
{
    /// CV_8UC4, blue-green-red multiplied by the fourth channel, the opacity. Empty: nothing to draw.
    cv::Mat picture;
    /// The point of the picture that is put to a given place: the middle of a face, or a hand's elbow.
    cv::Point2d anchor;
    /// For a person: face, and everything that shows, relative to the picture.
    cv::Rect2d face;
    cv::Rect2d outline;

    /// Multiplies the colours by the opacity. Both of one size, CV_8UC3 and CV_8UC1.
    static cv::Mat premultiplied(const cv::Mat &colours, const cv::Mat &opacity);
};

/// Lays the sprite over the frame (CV_8UC3), its anchor at the place, scaled around the anchor. What lies
/// outside the frame, or outside the part of it that is given as clip, is left out.
void blend(cv::Mat &frame, const Sprite &sprite, const cv::Point2d &place, double scale,
           const cv::Rect &clip);
