#pragma once

#include <opencv2/core.hpp>

#include <random>
#include <string>
#include <vector>

/// The width of a face in eye distances, as all tables count it.
constexpr double faceWidth = 2.5;

/// A face that somebody has marked in a photograph, in its pixels.
struct Mark
{
    cv::Point2d leftEye; ///< as seen in the picture
    cv::Point2d rightEye;
    std::string name; ///< "-" when nobody says who it is
    std::string kind; ///< front or turned

    double eyeDistance() const { return cv::norm(rightEye - leftEye); }
};

struct Photograph
{
    std::string file;
    cv::Mat picture; ///< CV_8UC3
    std::vector<Mark> marks;
};

struct Person
{
    std::string name;
    std::vector<Photograph> photographs;
};

/// What is measured: the folder that the program is given.
struct Photographs
{
    std::vector<Person> people;    ///< people/<name>/<photograph>
    std::vector<Photograph> room;  ///< room/<photograph>, with its marks in <photograph>.txt
    std::vector<Photograph> empty; ///< empty/<photograph>: nobody is in it
};

/// Reads the folder; what isn't there is empty. Files that are no pictures are told on standard error.
Photographs readPhotographs(const std::string &folder);

/// Writes the marks of a room photograph beside it.
void writeMarks(const Photograph &photograph);

/// A dim, softly lit wall of a full frame with some noise, as the back of a room.
cv::Mat emptyRoom(std::mt19937 &random);

/// The picture scaled, by area when it shrinks.
cv::Mat resized(const cv::Mat &picture, double scale);
