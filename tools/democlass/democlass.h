#pragma once

#include "gesture.h"
#include "sprite.h"

#include <opencv2/core.hpp>

#include <QString>
#include <QStringList>
#include <QVector>

#include <vector>

/**
 * A class of eight people, composed from photographs, for demonstrations and measurements without a camera.
 *
 * Seven people sit in three rows of desks and one walks to and fro along the back wall, eight seconds
 * of standing and eight of walking in turn; all of them move gently. For stretches of the film some
 * raise a hand, in one way or another, or hold a hand to the chin, in the hair or behind the head, which is
 * no raised hand. Some smile, some wear glasses. Every frame comes with the truth about it, so that
 * recognisers can be measured.
 *
 * The photographs are those of the Debian package opencv-doc, folder
 * .../share/doc/opencv-doc/opencv4/html; nothing is written to them.
 *
 * Threads: everything is prepared by the constructor (some tenths of a second); the const functions may then
 * be called from any threads at once. The film repeats itself only after hours.
 */
class DemoClass
{
public:
    /// What is true of one person in one frame; rectangles in pixels of the frame.
    struct Person
    {
        QString name;
        /// From the middle of the forehead to the chin, as measured by hand in the photograph.
        cv::Rect face;
        /// Head and body as far as they show above the desk, without a raised arm.
        cv::Rect body;
        /// What the arms do, as soon as they are half way there.
        Gesture gesture = Gesture::None;
        bool handUp = false; ///< the gesture is one of those that raise a hand
        bool smiling = false;
        bool glasses = false;
    };

    /// @param photoFolder folder with the photographs; when one is missing the object is invalid
    explicit DemoClass(const QString &photoFolder);

    /// The folder with the photographs: unpacked in a build folder that the executable lies below, or
    /// installed. Empty when there is none. An application object must exist.
    static QString findPhotographs();

    bool isValid() const { return m_error.isEmpty(); }
    /// Why the object is invalid: a sentence with the file. Empty when it is valid.
    QString error() const { return m_error; }

    /// The frame of that number, counted from 0, made for 30 frames a second: CV_8UC3, blue-green-red,
    /// 1920 by 1080, a picture of its own. Empty when the object is invalid.
    cv::Mat frame(int number) const;

    /// The truth about frame(number): one entry for each person, in the order of names().
    QVector<Person> truth(int number) const;

    /// The names of the people, constant. A person's place in the list is the place in truth().
    QStringList names() const;

private:
    struct Actor
    {
        QString name;
        Sprite sprite;
        std::vector<Sprite> arms; ///< for each act of the plan; empty for those of others
        int row = 0;
        bool smiling = false;
        bool glasses = false;
    };
    struct Pose
    {
        cv::Point2d face; ///< middle of the face in the frame
        double scale = 1;
        int act = -1;     ///< what the arms do, by its place in the plan; -1: nothing
        double armUp = 0; ///< 0: not to be seen, 1: all the way up
    };

    Pose pose(int actor, int number) const;

    QString m_error;
    std::vector<Actor> m_actors;
    cv::Mat m_background;
};
