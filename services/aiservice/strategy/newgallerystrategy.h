#pragma once

#include "basestrategy.h"

#include <QMutex>

#include <memory>
#include <vector>

/// One face of a whole frame.
struct PersonGallery
{
    int gid = 0;           ///< index of the face in the frame
    QString stuID;         ///< the student found, or empty
    cv::Rect faceRect;     ///< padded, in frame coordinates
    cv::Mat faceImg;       ///< head crop for identification
    cv::Mat showImg;       ///< wider head crop for people, beautified
    bool detected = false; ///< matched an enrolled student

    /// The text of the log.
    QString toString() const;
};

/**
 * Takes the faces off the video for the client, with the id of each face that the system knows, and ends
 * with one event 1011. Two modes: every face of the picture, or the one face around a student's known
 * place (setParameters). See BaseStrategy for threads and life.
 */
class NewGalleryStrategy : public BaseStrategy
{
    Q_OBJECT

public:
    explicit NewGalleryStrategy(const QString &requestID);

    /// Takes "x", "y", "width", "height" and "stuID" of one student. Takes effect on the next frame,
    /// also while the strategy runs.
    void setParameters(const QVariantMap &params) override;
    void handleFrame(const cv::Mat &frame) override;

private:
    using People = std::vector<std::shared_ptr<PersonGallery>>;
    struct Student
    {
        cv::Rect face;
        QString stuID;
    };

    /// The student as the parameters name him now.
    Student student();
    void detectClassGallery(const cv::Mat &frame);
    void detectStudentGallery(const cv::Mat &frame, const Student &student);
    /// Names the people by the external gallery and by the enrolled students; the latter win.
    void recognise(const People &people, const std::vector<cv::Mat> &crops);
    void sendGalleries(const cv::Mat &frame, const QVariantList &galleries);

    QMutex m_parameterLock; ///< guards the two parameters
    cv::Rect m_rect;        ///< the student's face in the frame
    QString m_stuID;
    int m_retries = 3; ///< tries left to find a face on a whole frame
};
