#pragma once

#include <opencv2/core.hpp>

#include <vector>

/**
 * How one person is cut out of a photograph.
 *
 * All coordinates are pixels of the photograph, measured by hand. Parts may lie outside of it: what the
 * photograph does not show (hair above its edge, a torso below the neck) is painted.
 */
struct Portrait
{
    const char *name = nullptr;
    const char *file = nullptr;
    std::vector<cv::Point> outline;
    cv::Rect face;     ///< cheek to cheek, middle of the forehead to chin
    int faceWidth = 0; ///< width that the face gets in the frame
    bool smiling = false;
    bool glasses = false;
    /// Painted hair and torso, over and behind the cut-out; none when empty. Colours are blue-green-red.
    std::vector<cv::Point> hair;
    cv::Scalar hairColour;
    std::vector<cv::Point> torso;
    cv::Scalar clothes;       ///< also the colour of the sleeves
    cv::Scalar gain{1, 1, 1}; ///< factor of each colour; evens out dark and colourless photographs
    /// The eyes, left one in the picture first, of a person who gets painted glasses; else empty.
    std::vector<cv::Point> paintedGlasses;
};

/// The people of the demo class.
const std::vector<Portrait> &portraits();

/// Name of the photograph with the raised hand's picture.
const char *handFile();

/// The hand in its photograph: fingers to the right, thumb up, the wrist at the left edge.
const std::vector<cv::Point> &handOutline();
