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

    std::shared_ptr<MTCNNModel> createMTCNNModel(const cv::Mat &image, bool withLandmarks)
    {
        return make<MTCNNModel>(image, m_mtcnn, withLandmarks);
    }
    /// @param action one of FaceIDModel::Action
    /// @param id of an entry of the gallery, for the actions that take one
    std::shared_ptr<FaceIDModel> createFaceIDModel(const cv::Mat &image, int action, int id = -1)
    {
        return make<FaceIDModel>(image, m_faceId, action, id);
    }
    std::shared_ptr<SSDModel> createSSDModel(const cv::Mat &image) { return make<SSDModel>(image, m_ssd); }
    std::shared_ptr<BodyPoseModel> createBodyPoseModel(const cv::Mat &image,
                                                       const std::vector<cv::Rect> &bodies)
    {
        return make<BodyPoseModel>(image, m_bodyPose, bodies);
    }
    std::shared_ptr<HandupModel> createHandupModel(const cv::Mat &image, const std::vector<cv::Rect> &bodies)
    {
        return make<HandupModel>(image, m_handup, bodies);
    }
    std::shared_ptr<FaceAttrModel> createFaceAttrModel(const cv::Mat &image, const cv::Rect &face)
    {
        return make<FaceAttrModel>(image, m_faceAttr, std::vector<cv::Rect>{face});
    }
    std::shared_ptr<FaceEmotionModel> createFaceEmotionModel(const cv::Mat &image)
    {
        return make<FaceEmotionModel>(image, m_faceEmotion);
    }
    std::shared_ptr<CMUModel> createCMUModel(const cv::Mat &image) { return make<CMUModel>(image, m_cmu); }
    std::shared_ptr<CMUModel> createCMUSingleModel(const cv::Mat &image)
    {
        return make<CMUModel>(image, m_cmuSingle);
    }
    std::shared_ptr<CMUPoseModel> createCMUPoseModel(const cv::Mat &image,
                                                     const std::vector<cv::Mat> &keyPoints)
    {
        return make<CMUPoseModel>(image, m_cmuPose, keyPoints);
    }

private:
    /// Puts scripted recognisers into the members.
    friend class ModelManagerTestAccess;

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

    /// Calls visit(which, member) for each of them.
    template <class Visit>
    void forEach(Visit visit)
    {
        visit(Recogniser::Faces, m_mtcnn);
        visit(Recogniser::FaceID, m_faceId);
        visit(Recogniser::Pose, m_cmu);
        visit(Recogniser::Pose, m_cmuSingle);
        visit(Recogniser::PoseClass, m_cmuPose);
        visit(Recogniser::Bodies, m_ssd);
        visit(Recogniser::BodyPose, m_bodyPose);
        visit(Recogniser::Handup, m_handup);
        visit(Recogniser::FaceAttr, m_faceAttr);
        visit(Recogniser::Emotion, m_faceEmotion);
    }

    bool m_caffeLoaded = false; ///< the first stage ended well
    bool m_tfLoaded = false;    ///< the second stage ended well

    mutable std::mutex m_lock; ///< leaf lock of the members

    /// A wrapper with what is in the member now.
    template <class Model, class Library, class... Arguments>
    std::shared_ptr<Model> make(const cv::Mat &image, const std::shared_ptr<Library> &member,
                                const Arguments &...arguments) const
    {
        std::unique_lock<std::mutex> locker(m_lock);
        std::shared_ptr<Library> recogniser = member;
        locker.unlock();
        return std::make_shared<Model>(image, std::move(recogniser), arguments...);
    }

    bool loadStage(LoadStage stage);
    bool load(const RecogniserRow &row);
    template <class Library>
    bool load(const RecogniserRow &row, std::shared_ptr<Library> &member);
};
