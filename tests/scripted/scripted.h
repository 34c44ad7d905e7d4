#pragma once

#include "fakes.h"
#include "modelmanager.h"

#include <memory>

/// Puts recognisers into the model manager; a null takes one out.
class ModelManagerTestAccess
{
public:
    /// One scripted recogniser of each class, in the manager for as long as this lives.
    struct Recognisers
    {
        Recognisers() { install(); }
        ~Recognisers() { clear(); }

        void install() const { put(this); }

        std::shared_ptr<scripted::FaceDetection> faces = std::make_shared<scripted::FaceDetection>();
        std::shared_ptr<scripted::FaceID> ids = std::make_shared<scripted::FaceID>();
        std::shared_ptr<scripted::Bodies> bodies = std::make_shared<scripted::Bodies>();
        std::shared_ptr<scripted::BodyPose> bodyPose = std::make_shared<scripted::BodyPose>();
        std::shared_ptr<scripted::Handup> handup = std::make_shared<scripted::Handup>();
        std::shared_ptr<scripted::FaceAttr> attributes = std::make_shared<scripted::FaceAttr>();
        std::shared_ptr<scripted::Emotion> emotion = std::make_shared<scripted::Emotion>();
        std::shared_ptr<scripted::Pose> pose = std::make_shared<scripted::Pose>();
        std::shared_ptr<scripted::PoseClass> poseClass = std::make_shared<scripted::PoseClass>();
    };

    static void clear() { put(nullptr); }

private:
    static void put(const Recognisers *set)
    {
        ModelManager &manager = ModelManager::instance();
        std::lock_guard<std::mutex> locker(manager.m_lock);
        manager.m_mtcnn = set ? set->faces : nullptr;
        manager.m_faceId = set ? set->ids : nullptr;
        manager.m_ssd = set ? set->bodies : nullptr;
        manager.m_bodyPose = set ? set->bodyPose : nullptr;
        manager.m_handup = set ? set->handup : nullptr;
        manager.m_faceAttr = set ? set->attributes : nullptr;
        manager.m_faceEmotion = set ? set->emotion : nullptr;
        manager.m_cmu = set ? set->pose : nullptr;
        manager.m_cmuSingle = set ? set->pose : nullptr;
        manager.m_cmuPose = set ? set->poseClass : nullptr;
    }
};
