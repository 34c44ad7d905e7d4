#pragma once

#include "videoframe.h"

#include <QColor>
#include <QImage>

#include <array>

/// Which numbers stand for which colours in a YUV frame.
struct ColourSettings
{
    enum Standard
    {
        Automatic, ///< BT.709 for frames of 720 lines and more, BT.601 below
        BT601,
        BT709
    };
    enum Range
    {
        Limited, ///< Y from 16 to 235, U and V from 16 to 240
        Full     ///< 0 to 255
    };

    Standard standard = Automatic;
    Range range = Limited;
    QColor background = Qt::black; ///< of the bars, and behind what is transparent
};

/// rgb = matrix * (yuv - offset): all values from 0 to 1.
struct YuvToRgb
{
    std::array<float, 9> matrix; ///< the rows for red, green and blue, one after the other
    std::array<float, 3> offset;
};

YuvToRgb yuvToRgb(const ColourSettings &settings, int frameHeight);

/// The frame as a picture of Format_RGB32, computed by the processor. Null for a null frame.
QImage toImage(const VideoFrame &frame, const ColourSettings &settings);
