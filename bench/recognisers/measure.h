#pragma once

#include "photographs.h"

#include <mirovane/facedetectionmtcnn.h>
#include <mirovane/faceiddetection.h>

#include <functional>
#include <memory>

/// The recognisers under measurement, through the interface that the service uses.
struct Recognisers
{
    std::shared_ptr<mirovane::FaceDetectionMTCNN> faces;
    std::shared_ptr<mirovane::FaceIDDetection> ids;
};

/// What the detector tells of a picture.
struct Found
{
    std::vector<cv::Rect> boxes;
    std::vector<float> scores;
    std::vector<std::vector<cv::Point>> landmarks;
};

Found detect(mirovane::FaceDetectionMTCNN &detector, const cv::Mat &picture);

/// The box that holds both eyes of the mark and has about the size of the face; -1 if there is none.
int findFor(const Mark &mark, const Found &found);

/// The value that a part of all values (0 to 1) doesn't exceed; 0 without values.
double percentile(std::vector<double> values, double part);

/// Processor time of all threads, so that other programs on the machine count little.
double millisecondsOf(const std::function<void()> &work);

/// Each marked face pasted into a full frame at several widths.
void measureSizes(const Recognisers &recognisers, const std::vector<Photograph> &room);

/// The photographs as they are. Draws one picture of them all: found green, missed blue, wrong red.
void measureRoom(const Recognisers &recognisers, const std::vector<Photograph> &room,
                 const std::string &drawing);

/// Pictures without anybody, enlarged to a full frame.
void measureEmpty(const Recognisers &recognisers, const std::vector<Photograph> &empty);

/// Who is known again in another photograph. Needs an empty gallery, and leaves one.
void measureIdentity(const Recognisers &recognisers, const std::vector<Person> &people);
