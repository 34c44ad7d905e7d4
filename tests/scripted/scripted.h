#pragma once

#include "modelmanager.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>

/**
 * Recognisers that follow a script: each calls a function that the test sets, on the thread of the
 * caller. Without a function they find nothing.
 */
namespace scripted {

struct FaceDetection : mirovane::FaceDetectionMTCNN
{
    using Script =
        std::function<void(const cv::Mat &, std::vector<cv::Rect> &, std::vector<std::vector<cv::Point>> &)>;

    int detectWithLandmarks(const cv::Mat &image, std::vector<cv::Rect> &faces, std::vector<float> &scores,
                            std::vector<std::vector<cv::Point>> &landmarks, bool) override
    {
        if (script)
            script(image, faces, landmarks);
        scores.assign(faces.size(), 0.9F);
        return 0;
    }
    int detect(const cv::Mat &image, std::vector<cv::Rect> &faces, std::vector<float> &scores, bool) override
    {
        std::vector<std::vector<cv::Point>> landmarks;
        return detectWithLandmarks(image, faces, scores, landmarks, false);
    }

    /// Finds these faces, each with level eyes a third of its width apart.
    void finds(const std::vector<cv::Rect> &rects)
    {
        script = [rects](const cv::Mat &, std::vector<cv::Rect> &faces,
                         std::vector<std::vector<cv::Point>> &landmarks) {
            for (const cv::Rect &rect : rects) {
                faces.push_back(rect);
                const auto part = [](int start, int size, int fifteenths) {
                    return static_cast<int>(start + std::int64_t{size} * fifteenths / 15);
                };
                const int left = part(rect.x, rect.width, 5);
                const int right = part(rect.x, rect.width, 10);
                const int eyes = part(rect.y, rect.height, 6);
                const int mouth = part(rect.y, rect.height, 12);
                landmarks.push_back({{left, eyes},
                                     {right, eyes},
                                     {part(rect.x, rect.width, 7), part(rect.y, rect.height, 9)},
                                     {left, mouth},
                                     {right, mouth}});
            }
        };
    }

    Script script;
};

/// A gallery that knows a face by the mean brightness of the picture's middle: equal within 3 grey
/// levels is the same person.
struct FaceID : mirovane::FaceIDDetection
{
    static int brightness(const cv::Mat &face)
    {
        return static_cast<int>(cv::mean(face(cv::Rect(48, 48, 32, 32)))[0]);
    }

    int registerFace(const cv::Mat &face, int) override
    {
        if (failRegister)
            return -5;
        entries[nextID] = brightness(face);
        return nextID++;
    }
    int identify(const cv::Mat &face, int *id, bool) override
    {
        *id = best(face);
        return 0;
    }
    void reserved1() override {}
    int extractFeature(const cv::Mat &face, cv::Mat *feature, bool) override
    {
        if (failExtract)
            return -7;
        *feature = featureOf(face);
        return 0;
    }
    int identifyAll(const cv::Mat &face, int *id, cv::Mat *feature, std::vector<int> *,
                    std::vector<double> *scores, bool) override
    {
        *id = best(face);
        *feature = featureOf(face);
        scores->assign(nextID, 0.0);
        for (const auto &[entry, value] : entries)
            (*scores)[entry] = std::abs(value - brightness(face)) <= 3 ? matchScore : 0.1;
        return 0;
    }
    void reserved2() override {}
    int removeFace(int id) override
    {
        if (failRemove)
            return -3;
        entries.erase(id);
        return 0;
    }
    void clearFaces() override { entries.clear(); }

    int best(const cv::Mat &face) const
    {
        for (const auto &[entry, value] : entries) {
            if (std::abs(value - brightness(face)) <= 3)
                return entry;
        }
        return -1;
    }
    static cv::Mat featureOf(const cv::Mat &face)
    {
        cv::Mat feature = cv::Mat::zeros(1, 256, CV_32F);
        feature.at<float>(0, brightness(face)) = 1.0F;
        return feature;
    }

    std::map<int, int> entries; ///< id to brightness
    int nextID = 0;
    double matchScore = 0.95;
    bool failRegister = false;
    bool failExtract = false;
    bool failRemove = false;
};

struct Bodies : mirovane::BodyDetectionSSD
{
    int detect(const cv::Mat &image, std::vector<cv::Rect> &bodies, std::vector<float> &scores, bool) override
    {
        if (script)
            script(image);
        bodies = rects;
        scores.assign(rects.size(), 0.9F);
        return 0;
    }

    std::vector<cv::Rect> rects;
    std::function<void(const cv::Mat &)> script;
};

struct BodyPose : mirovane::BodyPoseClassify
{
    void reserved1() override {}
    void reserved2() override {}
    int classify(const cv::Mat &, const std::vector<cv::Rect> &bodies, std::vector<int> &result,
                 std::vector<float> &scores, bool) override
    {
        for (size_t i = 0; i < bodies.size(); ++i)
            result.push_back(i < labels.size() ? labels[i] : 0);
        scores.assign(bodies.size(), 0.9F);
        return 0;
    }

    std::vector<int> labels;
};

struct Handup : mirovane::HandupClassify
{
    void reserved1() override {}
    void reserved2() override {}
    int classify(const cv::Mat &, const std::vector<cv::Rect> &rects, std::vector<int> &resultLabels,
                 std::vector<float> &resultScores, bool) override
    {
        seen = rects;
        resultLabels = labels;
        resultScores = scores;
        return 0;
    }

    std::vector<cv::Rect> seen;
    std::vector<int> labels;
    std::vector<float> scores;
};

struct FaceAttr : mirovane::FaceAttrDetection
{
    int detect(const cv::Mat &, const std::vector<cv::Rect> &faces,
               std::vector<mirovane::FaceAttrResult> &results, bool) override
    {
        seen = faces;
        results.resize(faces.size());
        for (mirovane::FaceAttrResult &result : results)
            result.labels = {label};
        return 0;
    }

    std::vector<cv::Rect> seen;
    int label = 0;
};

struct Emotion : mirovane::FaceEmotionClassify
{
    void reserved1() override {}
    void reserved2() override {}
    void reserved3() override {}
    int classify(const cv::Mat &face, int *resultLabel, float *resultScore, bool) override
    {
        seen = face.size();
        *resultLabel = label;
        *resultScore = score;
        return 0;
    }

    cv::Size seen;
    int label = 0;
    float score = 0;
};

struct Pose : mirovane::PoseDetectionCMU
{
    void reserved1() override {}
    void reserved2() override {}
    int detect(const cv::Mat &, std::vector<cv::Rect> &bodies, std::vector<cv::Mat> &points, bool) override
    {
        bodies = rects;
        for (const cv::Mat &matrix : keyPoints)
            points.push_back(matrix.clone());
        return 0;
    }

    std::vector<cv::Rect> rects;
    std::vector<cv::Mat> keyPoints;
};

struct PoseClass : mirovane::PoseClassifyCMU
{
    void reserved1() override {}
    int classify(const std::vector<cv::Mat> &points, std::vector<int> &result,
                 std::vector<float> &scores) override
    {
        for (size_t i = 0; i < points.size(); ++i)
            result.push_back(i < states.size() ? states[i] : 0);
        scores.assign(points.size(), 0.9F);
        return 0;
    }

    std::vector<int> states;
};

} // namespace scripted

/// Puts recognisers into the model manager; a null takes one out.
class ModelManagerTestAccess
{
public:
    /// One scripted recogniser of each class, in the manager from construction on and out of it again at
    /// the end.
    struct Recognisers
    {
        Recognisers() { install(); }
        ~Recognisers() { clear(); }

        void install()
        {
            ModelManager &manager = ModelManager::instance();
            std::lock_guard<std::mutex> locker(manager.m_lock);
            manager.m_mtcnn = faces;
            manager.m_faceId = ids;
            manager.m_ssd = bodies;
            manager.m_bodyPose = bodyPose;
            manager.m_handup = handup;
            manager.m_faceAttr = attributes;
            manager.m_faceEmotion = emotion;
            manager.m_cmu = pose;
            manager.m_cmuSingle = pose;
            manager.m_cmuPose = poseClass;
        }

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

    static void clear()
    {
        ModelManager &manager = ModelManager::instance();
        std::lock_guard<std::mutex> locker(manager.m_lock);
        manager.m_mtcnn.reset();
        manager.m_faceId.reset();
        manager.m_ssd.reset();
        manager.m_bodyPose.reset();
        manager.m_handup.reset();
        manager.m_faceAttr.reset();
        manager.m_faceEmotion.reset();
        manager.m_cmu.reset();
        manager.m_cmuSingle.reset();
        manager.m_cmuPose.reset();
    }

    static bool has(unsigned mask)
    {
        const ModelManager &manager = ModelManager::instance();
        return (mask == 0x8 && manager.m_faceId) || (mask == 0x40 && manager.m_ssd) ||
               (mask == 0x1 && manager.m_mtcnn) || (mask == 0x1000000 && manager.m_faceAttr);
    }
};
