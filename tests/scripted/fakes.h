#pragma once

#include <mirovane/recognisers.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>

/**
 * The one set of recognisers for tests, on the thread of the caller. Those of a fresh one find nothing;
 * fields and a script tell them what to find. Where a test tells everything itself (faults, fuzzing), it sets
 * `answer`, which then stands for the whole call.
 */
namespace scripted {

/// What every recogniser here has: a function that each call of one begins with.
struct Called
{
    void called() const
    {
        if (onCall)
            onCall();
    }
    std::function<void()> onCall;
};

/// A classifier tells `labels` and `scores` of what it gets, and 0 and 0.9 of what is beyond them.
struct Classifier : Called
{
    int classifyAll(std::size_t count, std::vector<int> &resultLabels, std::vector<float> &resultScores) const
    {
        called();
        if (answer)
            return answer(count, resultLabels, resultScores);
        (resultLabels = labels).resize(count);
        (resultScores = scores).resize(count, 0.9F);
        return 0;
    }

    std::vector<int> labels;
    std::vector<float> scores;
    std::function<int(std::size_t count, std::vector<int> &, std::vector<float> &)> answer;
};

struct FaceDetection : mirovane::FaceDetectionMTCNN, Called
{
    using Script =
        std::function<void(const cv::Mat &, std::vector<cv::Rect> &, std::vector<std::vector<cv::Point>> &)>;

    int detectWithLandmarks(const cv::Mat &image, std::vector<cv::Rect> &faces, std::vector<float> &scores,
                            std::vector<std::vector<cv::Point>> &landmarks, bool) override
    {
        called();
        if (answer)
            return answer(image, faces, scores, landmarks);
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
            faces = rects;
            for (const cv::Rect &rect : rects) {
                const auto part = [&rect](double x, double y) {
                    return cv::Point(cv::Point2d(rect.x + x * rect.width, rect.y + y * rect.height));
                };
                landmarks.push_back(
                    {part(0.33, 0.4), part(0.67, 0.4), part(0.5, 0.6), part(0.33, 0.8), part(0.67, 0.8)});
            }
        };
    }

    Script script;
    std::function<int(const cv::Mat &, std::vector<cv::Rect> &, std::vector<float> &,
                      std::vector<std::vector<cv::Point>> &)>
        answer;
};

/// A gallery that knows a face by the mean brightness of the picture's middle: equal within 3 grey
/// levels is the same person.
struct FaceID : mirovane::FaceIDDetection, Called
{
    static int brightness(const cv::Mat &face)
    {
        return static_cast<int>(cv::mean(face(cv::Rect(48, 48, 32, 32)))[0]);
    }

    int registerFace(const cv::Mat &face, int id) override
    {
        if (failRegister)
            return -5;
        if (id == -1)
            id = nextID++;
        entries[id] = brightness(face);
        return id;
    }
    int identify(const cv::Mat &face, int *id, bool) override
    {
        called();
        *id = best(face);
        return identifyResult;
    }
    int extractFeature(const cv::Mat &face, cv::Mat *feature, bool) override
    {
        called();
        if (extractResult < -1)
            return extractResult;
        *feature = featureOf(face);
        return extractResult;
    }
    int identifyAll(const cv::Mat &face, int *id, cv::Mat *feature, std::vector<int> *,
                    std::vector<double> *scores, bool) override
    {
        *id = best(face);
        *feature = featureOf(face);
        const int ids = entries.empty() ? 0 : entries.rbegin()->first + 1;
        scores->assign(std::max(ids, nextID), 0.0);
        for (const auto &[entry, value] : entries)
            (*scores)[entry] = std::abs(value - brightness(face)) <= 3 ? matchScore : 0.1;
        return identifyResult;
    }
    void reserved1() override {}
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
    int identifyResult = 0;
    int extractResult = 0; ///< below -1 there is no feature
    bool failRegister = false;
    bool failRemove = false;
};

struct Bodies : mirovane::BodyDetectionSSD, Called
{
    int detect(const cv::Mat &image, std::vector<cv::Rect> &bodies, std::vector<float> &scores, bool) override
    {
        called();
        if (answer)
            return answer(image, bodies, scores);
        if (script)
            script(image);
        bodies = rects;
        scores.assign(rects.size(), 0.9F);
        return 0;
    }

    std::vector<cv::Rect> rects;
    std::function<void(const cv::Mat &)> script;
    std::function<int(const cv::Mat &, std::vector<cv::Rect> &, std::vector<float> &)> answer;
};

struct BodyPose : mirovane::BodyPoseClassify, Classifier
{
    void reserved1() override {}
    void reserved2() override {}
    int classify(const cv::Mat &, const std::vector<cv::Rect> &bodies, std::vector<int> &resultLabels,
                 std::vector<float> &resultScores, bool) override
    {
        return classifyAll(bodies.size(), resultLabels, resultScores);
    }
};

struct Handup : mirovane::HandupClassify, Classifier
{
    void reserved1() override {}
    void reserved2() override {}
    int classify(const cv::Mat &, const std::vector<cv::Rect> &rects, std::vector<int> &resultLabels,
                 std::vector<float> &resultScores, bool) override
    {
        seen = rects;
        return classifyAll(rects.size(), resultLabels, resultScores);
    }

    std::vector<cv::Rect> seen;
};

struct FaceAttr : mirovane::FaceAttrDetection, Called
{
    int detect(const cv::Mat &, const std::vector<cv::Rect> &faces,
               std::vector<mirovane::FaceAttrResult> &results, bool) override
    {
        called();
        if (answer)
            return answer(faces.size(), results);
        results.assign(faces.size(), mirovane::FaceAttrResult{{label}});
        return 0;
    }

    int label = 0;
    std::function<int(std::size_t count, std::vector<mirovane::FaceAttrResult> &)> answer;
};

struct Emotion : mirovane::FaceEmotionClassify, Called
{
    void reserved1() override {}
    void reserved2() override {}
    void reserved3() override {}
    int classify(const cv::Mat &face, int *resultLabel, float *resultScore, bool) override
    {
        called();
        ++calls;
        if (answer)
            return answer(*resultLabel, *resultScore);
        seen = face.size();
        *resultLabel = label;
        *resultScore = score;
        return 0;
    }

    cv::Size seen;
    int calls = 0;
    int label = 0;
    float score = 0;
    std::function<int(int &label, float &score)> answer;
};

struct Pose : mirovane::PoseDetectionCMU, Called
{
    void reserved1() override {}
    void reserved2() override {}
    int detect(const cv::Mat &image, std::vector<cv::Rect> &bodies, std::vector<cv::Mat> &points,
               bool) override
    {
        called();
        if (answer)
            return answer(image, bodies, points);
        seen = image.size();
        bodies = rects;
        for (const cv::Mat &matrix : keyPoints)
            points.push_back(matrix.clone());
        return 0;
    }

    cv::Size seen;
    std::vector<cv::Rect> rects;
    std::vector<cv::Mat> keyPoints;
    std::function<int(const cv::Mat &, std::vector<cv::Rect> &, std::vector<cv::Mat> &)> answer;
};

struct PoseClass : mirovane::PoseClassifyCMU, Classifier
{
    void reserved1() override {}
    int classify(const std::vector<cv::Mat> &points, std::vector<int> &resultLabels,
                 std::vector<float> &resultScores) override
    {
        return classifyAll(points.size(), resultLabels, resultScores);
    }
};

/// One of each.
struct Recognisers
{
    std::shared_ptr<FaceDetection> faces = std::make_shared<FaceDetection>();
    std::shared_ptr<FaceID> ids = std::make_shared<FaceID>();
    std::shared_ptr<Bodies> bodies = std::make_shared<Bodies>();
    std::shared_ptr<BodyPose> bodyPose = std::make_shared<BodyPose>();
    std::shared_ptr<Handup> handup = std::make_shared<Handup>();
    std::shared_ptr<FaceAttr> attributes = std::make_shared<FaceAttr>();
    std::shared_ptr<Emotion> emotion = std::make_shared<Emotion>();
    std::shared_ptr<Pose> pose = std::make_shared<Pose>();
    std::shared_ptr<PoseClass> poseClass = std::make_shared<PoseClass>();

    template <class Visit>
    void forEach(Visit visit) const
    {
        const auto visitAll = [&visit](const auto &...fakes) { (visit(fakes), ...); };
        visitAll(faces, ids, bodies, bodyPose, handup, attributes, emotion, pose, poseClass);
    }
};

} // namespace scripted
