#pragma once

#include "sharedapi.h"

#include <opencv2/core.hpp>
#include <opencv2/dnn.hpp>

#include <atomic>
#include <cmath>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

/**
 * What the recognisers with learned nets share, in a shared library of its own: a net is in memory once for
 * all recogniser libraries of a process.
 */
namespace mirovane::open {

/**
 * A net in OpenCV's runtime.
 *
 * Threads: run() may be called from any number of threads. Each call has an instance of the net to itself:
 * cv::dnn is not reentrant and plans an instance anew when the size of its input changes.
 */
class MIROVANE_SHARED LearnedNet
{
public:
    /// The net of an ONNX file; the same object for everybody who opens it while it is held. Null, without an
    /// exception, when the file is absent or is no net.
    static std::shared_ptr<LearnedNet> open(const std::string &path);

    /// The net that the common configuration (the file that every recogniser is given) names under a key.
    /// Null when it names none, or as above.
    static std::shared_ptr<LearnedNet> find(const std::string &config, const std::string &key);

    /// Runs the net on an input (CV_32F, batch x channels x rows x columns). One blob (CV_32F, batch x
    /// channels x rows x columns) for each output named, in that order; nobody else holds it. Throws
    /// cv::Exception for an input or a name that the net doesn't have.
    std::vector<cv::Mat> run(const cv::Mat &input, const std::vector<std::string> &outputs);

    /// Whether the net has outputs of all these names: whether it is the one that is meant.
    bool gives(const std::vector<std::string> &outputs) const;

    /// How often it has run, for all recognisers of the process.
    size_t runs() const { return m_runs; }

    LearnedNet(const LearnedNet &) = delete;
    LearnedNet &operator=(const LearnedNet &) = delete;

private:
    /// An instance that is planned for the inputs of one shape.
    struct Planned
    {
        std::vector<int> shape;
        cv::dnn::Net net;
    };

    explicit LearnedNet(std::vector<uchar> file) : m_file(std::move(file)) {}
    Planned borrow(const std::vector<int> &shape);
    void giveBack(Planned planned);

    std::atomic<size_t> m_runs{0};
    std::vector<cv::String> m_outputs;
    std::vector<uchar> m_file;   ///< further instances are read from it
    std::mutex m_mutex;          ///< guards m_idle
    std::vector<Planned> m_idle; ///< the one used last comes last
};

/// The file of the net that the common configuration names under a key, full path; empty when it names none.
MIROVANE_SHARED std::string netPath(const std::string &config, const std::string &key);

/// What a net gives for a probability, as one between 0 and 1.
inline float sigmoid(float value)
{
    return 1 / (1 + std::exp(-value));
}

/// How the pixels of a picture become the numbers that a net was trained on: (value - mean) * factor.
struct PixelScale
{
    double factor = 1;
    cv::Scalar mean; ///< red, green, blue
};

/// Of blazeface and movenet: -1 to 1.
inline const PixelScale evenScale{1 / 127.5, cv::Scalar::all(127.5)};

/// Of landmark68, expression and recognition.
inline const PixelScale faceScale{1 / 255.0, {122.782, 117.001, 104.298}};

/// Pictures of one size (CV_8UC3, blue-green-red) as one input with red first.
MIROVANE_SHARED cv::Mat inputOf(const std::vector<cv::Mat> &pictures, const PixelScale &scale);

/// The square around a centre, brought to side by side pixels; black where it reaches outside the picture.
/// Positions count pixel edges: the picture begins at 0 and ends at its width. The picture is 8-bit with any
/// number of channels; centres and sides may be anything finite.
MIROVANE_SHARED cv::Mat squareCut(const cv::Mat &picture, const cv::Point2f &centre, float squareSide,
                                  int side);

/// A CV_8UC3 picture of an 8-bit one with one, three or four channels; empty for anything else. A picture of
/// that type is shared, not copied.
MIROVANE_SHARED cv::Mat toColour(const cv::Mat &image);

} // namespace mirovane::open
