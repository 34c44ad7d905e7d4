#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace mirovane::open {

/**
 * Turns a head crop (CV_8UC3, 128 by 128, the eyes 40 pixels apart around (64, 57.6)) into a feature: the
 * strength of lines of several widths and directions in each cell of the face, told as the difference
 * from a mean face. Eyes that were found a little beside the real ones do little harm: the crop is first
 * laid onto a mean picture of a face.
 *
 * Both means come from the model file. learn() makes them from crops of many people.
 *
 * Threads: describe() may be called from any number of threads.
 */
class FaceDescriptor
{
public:
    /// Errors of describe(). -1 is not among them: callers of the recogniser take it for a success.
    enum Error
    {
        WrongPicture = -2,
        NoContrast = -3
    };

    /// False, without an exception, when the file is absent or is no model of this kind.
    bool load(const std::string &path);

    /// Writes the model file.
    void save(const std::string &path) const;

    /// Takes the means anew from one crop for each of many people; each counts a second time mirrored.
    void learn(const std::vector<cv::Mat> &crops);

    /// 0 and a row vector of CV_32F with length 1, or a negative error.
    int describe(const cv::Mat &face, cv::Mat &feature) const;

private:
    cv::Mat placed(const cv::Mat &picture) const;
    cv::Mat strengths(const cv::Mat &picture) const;

    std::vector<double> m_wavelengths; ///< pixels of the crop
    int m_directions = 0;
    std::vector<cv::Mat> m_filters;
    cv::Mat m_face;      ///< the mean picture, at half the size; empty: crops are taken as they are
    cv::Mat m_strengths; ///< the mean strengths
};

} // namespace mirovane::open
