#pragma once

#include "datamanager.h"
#include "scripted.h"

#include <opencv2/imgproc.hpp>

/// Faces as flat patches of one brightness, which the scripted gallery can tell apart.
namespace students {

/// Paints a face of this brightness into the frame.
inline void paint(cv::Mat &frame, const cv::Rect &face, int brightness)
{
    cv::rectangle(frame, face, cv::Scalar::all(brightness), cv::FILLED);
}

/// Enrols a student with the face of this brightness. His face id.
inline int enrol(scripted::FaceID &gallery, const QString &stuID, int brightness,
                 const cv::Rect &face = cv::Rect(), const cv::Rect &body = cv::Rect())
{
    const cv::Mat picture(128, 128, CV_8UC3, cv::Scalar::all(brightness));
    StudentInfo student;
    student.stuID = stuID;
    student.faceID = gallery.registerFace(picture, -1);
    student.faceRect = face;
    student.galleryImage = picture;
    student.bestGallery = picture;
    student.registerFeature = scripted::FaceID::featureOf(picture);
    student.meanFeature = student.registerFeature;
    DataManager::instance()->addStudent(student);
    if (!body.empty())
        DataManager::instance()->updateBodyRect(student.faceID, body, 0);
    return student.faceID;
}

inline StudentInfo get(const QString &stuID)
{
    return DataManager::instance()->getStudentInfo(stuID);
}

} // namespace students
