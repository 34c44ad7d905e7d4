#pragma once

#include "bodyposemodel.h"
#include "cmumodel.h"
#include "cmuposemodel.h"
#include "faceattrmodel.h"
#include "faceemotionmodel.h"
#include "faceidmodel.h"
#include "handupmodel.h"
#include "mtcnnmodel.h"
#include "ssdmodel.h"

#include <mutex>

/**
 * The one owner of the recognisers. Creates those that AIConfig asks for, keeps them for the life of the
 * process, and hands out a fresh wrapper whenever somebody wants to run one on a picture.
 *
 * Threads: init() runs on one request thread at a time; the factories run on any thread, also beside an
 * init(): a member is read and set under a leaf lock.
 *
 * The picture handed to a factory isn't copied: the caller keeps it alive and unchanged until the
 * results have been read. A wrapper on a recogniser that was never loaded is made all the same; its
 * detect() is false.
 */
class ModelManager
{
public:
    /// The one instance, a static object.
    static ModelManager &instance();

    ModelManager() = default;
    ModelManager(const ModelManager &) = delete;
    ModelManager &operator=(const ModelManager &) = delete;

    /// Loads what is wanted and not yet loaded, in two stages; the second runs also when the first has
    /// failed. True if both ended well. A failed stage leaves its later recognisers unloaded, and a
    /// later call goes on from there.
    bool init();
    bool initCaffeModel();
    bool initTFModel();

    std::shared_ptr<MTCNNModel> createMTCNNModel(const cv::Mat &image, bool withLandmarks);
    /// @param action one of FaceIDModel::Action
    std::shared_ptr<FaceIDModel> createFaceIDModel(const cv::Mat &image, int action, int id);
    std::shared_ptr<SSDModel> createSSDModel(const cv::Mat &image);
    std::shared_ptr<BodyPoseModel> createBodyPoseModel(const cv::Mat &image,
                                                       const std::vector<cv::Rect> &bodies);
    std::shared_ptr<HandupModel> createHandupModel(const cv::Mat &image, const std::vector<cv::Rect> &bodies);
    std::shared_ptr<FaceAttrModel> createFaceAttrModel(const cv::Mat &image, const cv::Rect &face);
    std::shared_ptr<FaceEmotionModel> createFaceEmotionModel(const cv::Mat &image);
    std::shared_ptr<CMUModel> createCMUModel(const cv::Mat &image);
    std::shared_ptr<CMUModel> createCMUSingleModel(const cv::Mat &image);
    std::shared_ptr<CMUPoseModel> createCMUPoseModel(const cv::Mat &image,
                                                     const std::vector<cv::Mat> &keyPoints);

private:
    /// Puts scripted recognisers into the members.
    friend class ModelManagerTestAccess;

    template <class Library>
    std::shared_ptr<Library> current(const std::shared_ptr<Library> &member) const
    {
        std::lock_guard<std::mutex> locker(m_lock);
        return member;
    }

    std::shared_ptr<mirovane::FaceDetectionMTCNN> m_mtcnn;
    std::shared_ptr<mirovane::FaceIDDetection> m_faceId;
    // No pose network is ever loaded: there is no factory for them.
    std::shared_ptr<mirovane::PoseDetectionCMU> m_cmu;       ///< for the whole frame
    std::shared_ptr<mirovane::PoseDetectionCMU> m_cmuSingle; ///< for one person
    std::shared_ptr<mirovane::PoseClassifyCMU> m_cmuPose;
    std::shared_ptr<mirovane::BodyDetectionSSD> m_ssd;
    std::shared_ptr<mirovane::BodyPoseClassify> m_bodyPose;
    std::shared_ptr<mirovane::HandupClassify> m_handup;
    std::shared_ptr<mirovane::FaceAttrDetection> m_faceAttr;
    std::shared_ptr<mirovane::FaceEmotionClassify> m_faceEmotion;
    bool m_caffeLoaded = false; ///< the first stage ended well
    bool m_tfLoaded = false;    ///< the second stage ended well

    mutable std::mutex m_lock; ///< leaf lock of the members

    bool loadStage(LoadStage stage);
    bool load(const RecogniserRow &row);
    template <class Library>
    bool load(const RecogniserRow &row, std::shared_ptr<Library> &member);
};
