#pragma once

#include "basestrategy.h"

#include <vector>

/// One place in which a face stands, with the crops of the frame that scored highest.
struct GalleryItem
{
    int index;         ///< number of records when it was added
    cv::Rect faceRect; ///< padded, of the kept frame
    cv::Mat faceImg;   ///< head crop for identification
    cv::Mat showImg;   ///< wider head crop for people
    cv::Point centre;  ///< latest centre of the face
    int offset;        ///< landmark offset of the kept frame
};

/**
 * Follows the faces of the picture from frame to frame and keeps a record for each. No command starts
 * it; it sends no event. See BaseStrategy for threads and life.
 */
class GalleryStrategy : public BaseStrategy
{
    Q_OBJECT

public:
    /// Empties the records.
    GalleryStrategy();

    void handleFrame(const cv::Mat &frame) override;

    /// The records of the class, kept until the next construction. For the strategy's thread only.
    static const std::vector<GalleryItem> &items();
};
