#pragma once

#include <opencv2/core.hpp>
#include <opencv2/objdetect.hpp>

#include <QRect>
#include <QStringList>

/// A face as the service enrols it.
struct Portrait
{
    /// JPEG file of 128 by 128 pixels.
    QByteArray jpeg;
    /// The face in pixels of the camera's frame; empty when the picture was not a whole frame.
    QRect place;
};

/**
 * Makes portraits out of picture files: the largest face of a picture, turned upright, with an eye distance
 * of 40 pixels and the middle of the eyes at 50 % of the width and 45 % of the height.
 *
 * A picture that is 128 by 128 already, such as the crops that the service sends, is taken as it is.
 */
class PortraitMaker
{
public:
    enum Problem
    {
        None,
        NoPicture,
        NoFace,
        NoCascades ///< OpenCV's files are not installed
    };

    /// @param cascadeFolder where OpenCV's Haar cascades lie; empty looks in the model folder beside the
    ///        program and in the folder of the system's package
    explicit PortraitMaker(const QString &cascadeFolder = {});

    /// False, with a reason, for a file that is no picture and for a picture without a face.
    bool make(const QString &file, Portrait *portrait, QString *error);
    /// Why the last picture was refused.
    Problem problem() const { return m_problem; }

private:
    bool loadCascades(QString *error);
    QRect findFace(const cv::Mat &grey);
    /// The eyes, left and right in the picture; where they stand in an average face when they are not found.
    std::pair<cv::Point2f, cv::Point2f> findEyes(const cv::Mat &grey, const QRect &face);

    const QStringList m_folders;
    Problem m_problem = None;
    cv::CascadeClassifier m_faces;
    cv::CascadeClassifier m_eyes;
};
