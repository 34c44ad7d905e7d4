#pragma once

#include <opencv2/core.hpp>

#include <QString>

#include <string>

/**
 * What is known of one student: a plain value, copied freely.
 *
 * A copy shares the pixels of the matrices with the table's record, so the matrices of a record that was
 * handed out are read-only. Rectangles are in pixels of the full frame.
 */
struct StudentInfo
{
    /// The key. Empty marks a lookup that found nobody.
    QString stuID;
    /// Id of the face in the recogniser's gallery, -1 for none.
    int faceID = -1;
    cv::Rect faceRect;
    /// The registered face, CV_8UC3, 128 by 128.
    cv::Mat galleryImage;
    /// Feature of the registered face (a row of floating point numbers); does not change afterwards.
    cv::Mat registerFeature;
    /// False when the registered face was too small for the recogniser's gallery.
    bool faceIDValid = true;
    int imageSize = 128; ///< read by nobody; kept on purpose
    cv::Rect bodyRect;
    /// Middle of bodyRect, by integer division.
    int bodyCenterX = 0;
    int bodyCenterY = 0;
    /// Latest crop of the body.
    cv::Mat bodyMat;
    bool bodyChecked = false; ///< read by nobody; kept on purpose
    /// Features folded into meanFeature since registration.
    int featureCount = 0;
    /// Best face picture so far; starts as the registered image.
    cv::Mat bestGallery;
    /// Running feature; starts as registerFeature.
    cv::Mat meanFeature;
    /// Best cosine similarity so far. Only a better match ever replaces bestGallery.
    double galleryScore = 0.7;
    /// How the current matching pass found the student: 0 not at all, 1 by face, 2 by body, 3 by stored face.
    int status = 0;
    /// Row of the class-room, 1 nearest the camera, -1 before the rows were first sorted.
    int row = -1;
    std::string clothColor = "others"; ///< nothing tells another one; kept on purpose
    bool glass = false;
};
