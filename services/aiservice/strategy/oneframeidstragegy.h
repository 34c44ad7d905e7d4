#pragma once

#include <opencv2/core.hpp>

#include <cstddef>
#include <map>
#include <vector>

/**
 * Answers for one frame which body belongs to which student. Built, run once, dropped; the outcome
 * stands in DataManager: each student found has a fresh body rectangle, and a status that tells by which
 * match.
 *
 *  1. The student's face, identified by the recogniser, lies inside a body.
 *  2. A body lies near the place where a student not yet found was last seen.
 *  3. The stored face of a student without a usable face id lies inside a body.
 *
 * Each body goes to one student at most.
 *
 * Threads: runs on the caller's thread. DataManager locks each call on its own, so two passes that run
 * at once reset each other's outcome.
 */
class OneFrameIdStragegy
{
public:
    /// Opens a new matching pass: every student counts as not found from here on.
    /// @param frame CV_8UC3, kept by pointer
    OneFrameIdStragegy(const cv::Mat &frame, std::vector<cv::Rect> bodies);

    /// @param frameNumber for the logs
    void run(int frameNumber);

    /// Finds and identifies the faces of the frame, and folds what it sees into the students' records.
    /// From face id to face rectangle.
    std::map<int, cv::Rect> detectFace();

    /// Index of the first candidate that wholly contains the rectangle, or -1.
    static int bestOverlap(const cv::Rect &rect, const std::vector<cv::Rect> &candidates);

    /// 1.0 if a lies wholly inside b, else 0.0: the areas are divided as integers. 0.0 if a has no area.
    static double overlapRatio(const cv::Rect &a, const cv::Rect &b);

    /// Pairs the centres of rectangles with points, see matching::nearestPairs.
    static std::map<size_t, size_t> nearestPairs(const std::vector<cv::Rect> &rects,
                                                 const std::vector<cv::Point> &points,
                                                 int maxSquaredDistance);

private:
    void matchingByFace();
    void matchingByBodyRect();
    void matchingByStoredFace();

    int m_frameNumber = 0;
    const cv::Mat *m_image;
    std::vector<cv::Rect> m_bodies;  ///< still free
    std::vector<cv::Mat> m_bodyMats; ///< one picture per body, in step, or none at all
};
