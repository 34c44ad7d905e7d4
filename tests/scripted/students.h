#pragma once

#include "datamanager.h"
#include "scripted.h"

/// Faces as flat patches of one brightness, which the scripted gallery can tell apart.
namespace students {

/// Enrols a student with the face of this brightness.
inline void enrol(scripted::FaceID &gallery, const QString &stuID, int brightness,
                  const cv::Rect &face = cv::Rect(), const cv::Rect &body = cv::Rect())
{
    const cv::Mat picture(128, 128, CV_8UC3, cv::Scalar::all(brightness));
    StudentInfo student;
    student.stuID = stuID;
    student.faceID = gallery.registerFace(picture, -1);
    student.faceRect = face;
    student.bestGallery = picture;
    student.meanFeature = scripted::FaceID::featureOf(picture);
    DataManager::instance()->addStudent(student);
    if (!body.empty())
        DataManager::instance()->updateBodyRect(student.faceID, body, 0);
}

inline StudentInfo get(const QString &stuID)
{
    return DataManager::instance()->getStudentInfo(stuID);
}

/// The students that an event or a reply lists, in its order.
inline QStringList ids(const QVariant &list)
{
    QStringList result;
    for (const QVariant &entry : list.toList())
        result.append(entry.toMap()["stuID"].toString());
    return result;
}

} // namespace students
