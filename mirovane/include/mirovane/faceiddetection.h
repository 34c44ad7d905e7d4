#pragma once

#include "mirovane/api.h"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace mirovane {

/**
 * Holds a gallery of faces under integer ids, enrols, identifies and extracts feature vectors.
 *
 * A face is a head crop of 128 by 128 pixels, CV_8UC3 in blue-green-red order. The gallery lives inside
 * the object and the ids are its own. A feature is a row vector of floating point numbers, comparable by
 * cosine similarity. Results below 0 are errors. No operation needs to be reentrant: the caller takes
 * turns.
 */
class MIROVANE_API FaceIDDetection
{
public:
    virtual ~FaceIDDetection() = default;

    /// Makes a recogniser from its model file and the common configuration, both full paths.
    /// Null on failure. The caller owns the object.
    static FaceIDDetection *create(const std::string &model, const std::string &config);

    /// Enrols the face under the id, or under an id of the library's choosing when it is -1. The id, 0
    /// or more, or a negative error.
    virtual int registerFace(const cv::Mat &face, int id) = 0;

    /// Sets *id to the best entry of the gallery. 0 on success.
    virtual int identify(const cv::Mat &face, int *id, bool option) = 0;

    virtual void reserved1() = 0;

    /// Fills the feature of the face. 0 and -1 both count as success.
    virtual int extractFeature(const cv::Mat &face, cv::Mat *feature, bool option) = 0;

    /// Sets *id to the best entry, or to -1 if none comes near; *feature to the feature of the face;
    /// *scores to one similarity for each id of the gallery, indexed by the id. 0 on success.
    virtual int identifyAll(const cv::Mat &face, int *id, cv::Mat *feature, std::vector<int> *candidates,
                            std::vector<double> *scores, bool option) = 0;

    virtual void reserved2() = 0;

    /// Removes an entry. 0 on success.
    virtual int removeFace(int id) = 0;

    /// Empties the gallery.
    virtual void clearFaces() = 0;
};

} // namespace mirovane
