#pragma once

#include "messages.h"
#include "recognisertable.h"

#include <QDir>
#include <QMutex>
#include <QVariantMap>

#include <array>
#include <atomic>
#include <string>

/**
 * The process-wide record of the recognition settings: where the model files are, which recognisers the
 * client wants, thresholds, and the fixed numbers of the face and body logic.
 *
 * Three things feed it: its constructor (the fixed numbers), load() once at the start of the process,
 * and the client's settings. Everything else reads it.
 *
 * Threads: load() runs before any other thread exists; what it sets never changes afterwards and is read
 * without a lock. The client's settings may be set and read on any thread.
 */
class AIConfig : public ModelPaths
{
public:
    /// The one instance, a static object.
    static AIConfig &instance();

    AIConfig() = default;
    AIConfig(const AIConfig &) = delete;
    AIConfig &operator=(const AIConfig &) = delete;

    /// Reads "model/aiconfig.ini" beside the executable. A missing file or key is no error: the default
    /// stands.
    void load();

    /// Adds the bits of the recognisers whose key in the map is true. No bit is ever cleared by it.
    void setModelFlags(const QVariantMap &params);
    /// Whether one of the recognisers of the mask is wanted.
    bool isModelWanted(unsigned mask) const { return (modelLoadFlag & mask) != 0; }
    /// Replaces the whole bit set.
    void setModelLoadFlag(unsigned flag) { modelLoadFlag = flag; }

    /// The client's name for the room; the first piece of the names of video files.
    QString identify() const;
    void setIdentify(const QString &identify);
    void setEnableEmotion(bool enable) { enableEmotion = enable; }

    // Paths (full, with those of the recognisers' files) and the recognisers wanted.
    QDir modelDir;                          ///< the model folder
    std::atomic<unsigned> modelLoadFlag{0}; ///< bit set, see recogniserTable
    std::string modelConfigPath;            ///< common configuration, handed to every recogniser
    std::string cmuConfigPath;   ///< read by nobody, as the pose network is never loaded; kept on purpose
    std::string colorDefinePath; ///< read by nobody; kept on purpose

    // Fixed numbers, in pixels of the full frame unless told otherwise.
    const int registerFaceSize = 128;   ///< side of a face picture that a client supplies
    const int galleryFrameInterval = 5; ///< frames
    const int faceRectPadding = 5;      ///< added on every side of a detected face
    const double overlapThreshold = 0.85;
    const int identifyEyeDistance = 40; ///< in the head crop for identification
    const int showEyeDistance = 25;     ///< in the wider head crop shown to people
    const int studentRoiMargin = 60;    ///< around a student whose gallery is fetched
    const std::array<double, 5> bodyPoseWeights = ai::poseWeights;
    double fetchGalleryThre = 0.35;       ///< least cosine for an entry of the external gallery
    double detectGalleryThre = 0.43;      ///< least score for an enrolled student
    const int trackingFrameInterval = 10; ///< frames
    float smileThre = 0.75F;              ///< least score of a smile
    const int frameWidth = 1920;
    const int frameHeight = 1080;
    const int registerFaceMinSize = 20;
    const int faceMinSize = 40;

    int keepLogDays = 0; ///< logs and dumps are removed after so many days; 0 keeps them

    // The client's settings.
    std::atomic<bool> enableEmotion{true};

private:
    mutable QMutex m_identifyLock;
    QString m_identify;
};
