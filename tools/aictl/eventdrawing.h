#pragma once

#include "aiclient.h"

#include <opencv2/core.hpp>

#include <QRect>

#include <functional>

/**
 * Draws events on the picture that they came with: boxes, names, raised hands, states, the value of the
 * class, the box of a followed student, game regions and bones, attributes.
 *
 * Remembers where each student was seen last, for the events that tell names without places.
 * Names outside ASCII are drawn as question marks: the font has no others.
 */
class EventDrawing
{
public:
    using Picture = std::function<cv::Mat()>;

    /// @param camera gives the current picture, CV_8UC3; asked for only when the event has none of its own
    /// @return the drawing; empty for an event with nothing to draw, and without a picture
    cv::Mat draw(const AiEvent &event, const Picture &camera);

private:
    void drawOn(cv::Mat &picture, const AiEvent &event);
    void remember(const QVariantMap &entry);

    QMap<QString, QRect> m_places; // pixels of the full frame, by student
};
