#include "democlass.h"
#include "learnednet.h"
#include "mtcnnmodel.h"

#include <gmock/gmock.h>
#include <mirovane/recognisers.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <QDir>

#include <fstream>
#include <future>
#include <limits>
#include <memory>
#include <set>

using namespace ::testing;
using namespace mirovane;

namespace {

const std::string models = MODEL_FOLDER "/";

template <class Class, class... Files>
std::unique_ptr<Class> make(const Files &...files)
{
    return std::unique_ptr<Class>(Class::create((models + files)..., models + "model-config.yml"));
}

class Recognisers : public Test
{
protected:
    void SetUp() override { ASSERT_TRUE(faces && ids && bodies && hands && poses && emotions && attributes); }

    /// The class of each rectangle, and how sure it is.
    template <class Classifier>
    static auto classified(Classifier &classifier, const cv::Mat &picture, const std::vector<cv::Rect> &rects)
    {
        std::pair<std::vector<int>, std::vector<float>> told;
        classifier.classify(picture, rects, told.first, told.second, false);
        return told;
    }

    std::shared_ptr<FaceDetectionMTCNN> faces =
        make<FaceDetectionMTCNN>("blazeface.onnx", "blazeface.onnx", "landmark68.onnx");
    std::unique_ptr<FaceIDDetection> ids = make<FaceIDDetection>("recognition.onnx");
    std::unique_ptr<BodyDetectionSSD> bodies = make<BodyDetectionSSD>("blazeface.onnx");
    std::unique_ptr<HandupClassify> hands = make<HandupClassify>("movenet.onnx");
    std::unique_ptr<BodyPoseClassify> poses = make<BodyPoseClassify>("movenet.onnx");
    std::unique_ptr<FaceEmotionClassify> emotions = make<FaceEmotionClassify>("emotion.onnx");
    std::unique_ptr<FaceAttrDetection> attributes = make<FaceAttrDetection>("landmark68.onnx");
};

TEST_F(Recognisers, FilesThatAreNoModelsGiveNull)
{
    const std::string cut = QDir::temp().filePath("cut.xml").toStdString();
    std::ofstream(cut) << "<?xml version=\"1.0\"?><opencv_storage><a>1</a";
    const std::string wrong = QDir::temp().filePath("wrong.yml").toStdString();
    std::ofstream(wrong)
        << "%YAML:1.0\n---\nclass: \"FaceIDDetection\"\nwavelengths: [ 6. ]\ndirections: 8\nface: [ 1, 2 ]\n";
    const std::string stage = models + "blazeface.onnx";
    const std::string landmarks = models + "landmark68.onnx";
    for (const std::string &bad : {cut, wrong, models + "absent.xml", models, std::string()}) {
        SCOPED_TRACE(bad);
        EXPECT_EQ(FaceDetectionMTCNN::create(bad, stage, landmarks, ""), nullptr);
        EXPECT_EQ(FaceDetectionMTCNN::create(stage, bad, landmarks, ""), nullptr);
        EXPECT_EQ(FaceDetectionMTCNN::create(stage, stage, bad, ""), nullptr);
        EXPECT_EQ(FaceIDDetection::create(bad, ""), nullptr);
        EXPECT_EQ(BodyDetectionSSD::create(bad, ""), nullptr);
        EXPECT_EQ(HandupClassify::create(bad, ""), nullptr);
        EXPECT_EQ(BodyPoseClassify::create(bad, ""), nullptr);
        EXPECT_EQ(FaceEmotionClassify::create(bad, ""), nullptr);
        EXPECT_EQ(FaceAttrDetection::create(bad, ""), nullptr);
    }
    EXPECT_EQ(FaceDetectionMTCNN::create(stage, landmarks, landmarks, ""), nullptr);
    EXPECT_EQ(FaceDetectionMTCNN::create(stage, stage, stage, ""), nullptr);
    EXPECT_EQ(FaceIDDetection::create(landmarks, ""), nullptr);
}

TEST_F(Recognisers, AnswerForAnyPictureAndAnyRectangle)
{
    constexpr int most = std::numeric_limits<int>::max();
    constexpr int least = std::numeric_limits<int>::min();
    const std::vector<cv::Rect> rects = {
        {}, {10, 10, -5, 40}, {-50, -50, 400, 400}, {most, most, most, most}, {least, least, most, most}};
    const std::size_t count = rects.size();
    const auto grey = cv::Scalar::all(90);
    for (const cv::Mat &picture :
         {cv::Mat(), cv::Mat(1, 1, CV_8UC3, grey), cv::Mat(7, 300, CV_8UC3, grey),
          cv::Mat(2000, 25, CV_8UC3, grey), cv::Mat(128, 128, CV_8UC3, cv::Scalar(3, 4, 5)),
          cv::Mat(200, 200, CV_8UC1, grey), cv::Mat(200, 200, CV_8UC4, grey),
          cv::Mat(200, 200, CV_16UC1, grey), cv::Mat(200, 200, CV_32FC3, cv::Scalar::all(0.5))}) {
        SCOPED_TRACE(Message() << picture.size() << " type " << picture.type());
        std::vector<cv::Rect> found;
        std::vector<float> scores;
        std::vector<std::vector<cv::Point>> landmarks;
        bodies->detect(picture, found, scores, false);
        EXPECT_THAT(found, IsEmpty());
        faces->detect(picture, found, scores, false);
        EXPECT_THAT(found, IsEmpty());
        faces->detectWithLandmarks(picture, found, scores, landmarks, false);
        EXPECT_THAT(found, IsEmpty());
        EXPECT_THAT(scores, IsEmpty());
        EXPECT_THAT(landmarks, IsEmpty());

        EXPECT_THAT(classified(*hands, picture, rects),
                    Pair(AllOf(SizeIs(count), Each(Ne(0))), AllOf(SizeIs(count), Each(Ge(0.8F)))));
        EXPECT_THAT(classified(*poses, picture, rects), Pair(AllOf(SizeIs(count), Each(1)), SizeIs(count)));
        int label = 7;
        float score = 7;
        emotions->classify(picture, &label, &score, false);
        EXPECT_EQ(label, 0);
        EXPECT_TRUE(score >= 0 && score <= 1) << score;
        std::vector<FaceAttrResult> results;
        attributes->detect(picture, rects, results, false);
        EXPECT_THAT(results, AllOf(SizeIs(count), Each(Field(&FaceAttrResult::labels, ElementsAre(0)))));

        int id = 7;
        cv::Mat feature;
        std::vector<int> labels;
        std::vector<double> similarities;
        EXPECT_LT(ids->registerFace(picture, -1), 0);
        EXPECT_LT(ids->extractFeature(picture, &feature, false), -1) << "-1 would count as success";
        EXPECT_LT(ids->identifyAll(picture, &id, &feature, &labels, &similarities, false), 0);
        EXPECT_LT(ids->identify(picture, &id, false), 0);
        EXPECT_EQ(id, -1);
        EXPECT_TRUE(feature.empty());
    }
}

/// A textured picture that is its own for each seed.
cv::Mat pattern(unsigned seed)
{
    cv::Mat small(16, 16, CV_8UC3), picture;
    cv::RNG(seed).fill(small, cv::RNG::UNIFORM, 0, 256);
    cv::resize(small, picture, {128, 128}, 0, 0, cv::INTER_CUBIC);
    return picture;
}

TEST_F(Recognisers, FaceIdsCountUpAndScoresAreIndexedById)
{
    EXPECT_EQ(ids->registerFace(pattern(0), -1), 0);
    EXPECT_EQ(ids->registerFace(pattern(1), -1), 1);
    EXPECT_EQ(ids->registerFace(pattern(4), 4), 4);
    EXPECT_EQ(ids->registerFace(pattern(5), -1), 5);
    EXPECT_EQ(ids->removeFace(5), 0);
    EXPECT_LT(ids->registerFace(pattern(6)(cv::Rect(0, 0, 127, 128)), -1), 0);
    EXPECT_LT(ids->registerFace(pattern(6), -2), 0);
    EXPECT_LT(ids->registerFace(pattern(6), std::numeric_limits<int>::max()), 0);
    EXPECT_EQ(ids->registerFace(pattern(6), -1), 6) << "an id is not used again at once, nor by an error";
    for (const int gone : {1, 1, -5})
        EXPECT_EQ(ids->removeFace(gone), 0);

    int id = 0;
    cv::Mat feature;
    std::vector<int> candidates;
    std::vector<double> scores(9, 9.0);
    EXPECT_EQ(ids->identifyAll(pattern(4), &id, &feature, &candidates, &scores, false), 0);
    EXPECT_EQ(id, 4);
    EXPECT_EQ(feature.rows, 1);
    EXPECT_EQ(feature.type(), CV_32F);
    EXPECT_NEAR(cv::norm(feature), 1, 1e-5);
    EXPECT_THAT(scores, ElementsAre(_, 0.0, 0.0, 0.0, DoubleNear(1, 1e-5), 0.0, _));
    const cv::Mat first = feature;
    EXPECT_EQ(ids->extractFeature(pattern(4), &feature, false), 0);
    EXPECT_EQ(cv::norm(first, feature), 0);
    EXPECT_EQ(ids->registerFace(pattern(1), 4), 4) << "an id may be enrolled anew";
    EXPECT_EQ(ids->identify(pattern(1), &id, false), 0);
    EXPECT_EQ(id, 4);

    ids->clearFaces();
    EXPECT_EQ(ids->identifyAll(pattern(4), &id, &feature, &candidates, &scores, false), 0);
    EXPECT_EQ(id, -1);
    EXPECT_THAT(scores, IsEmpty());
}

class DemoPeople : public Recognisers
{
protected:
    void SetUp() override
    {
        Recognisers::SetUp();
        ASSERT_TRUE(demo.isValid()) << demo.error().toStdString();
    }

    /// The face as a detector would give it, padded as the service does.
    static cv::Rect paddedFace(const DemoClass::Person &person)
    {
        const int side = person.face.width * 13 / 10;
        const cv::Point middle = (person.face.tl() + person.face.br()) / 2;
        return cv::Rect(middle.x - side / 2, middle.y - side / 2, side, side) & cv::Rect(0, 0, 1920, 1080);
    }

    /// The body that is found in the frame and wholly covers the person's face.
    cv::Rect bodyOf(const QString &name, int number)
    {
        std::vector<cv::Rect> found;
        std::vector<float> scores;
        bodies->detect(demo.frame(number), found, scores, false);
        EXPECT_EQ(found.size(), scores.size());
        const cv::Rect face = paddedFace(demo.truth(number)[demo.names().indexOf(name)]);
        for (const cv::Rect &body : found) {
            if ((body & face) == face)
                return body;
        }
        ADD_FAILURE() << "no body of " << name.toStdString() << " in frame " << number;
        return {};
    }

    /// Everybody's head in a frame that was changed and stored, as the service cuts it out.
    std::vector<cv::Mat> heads(int number, double size, double light)
    {
        cv::Mat picture;
        cv::resize(demo.frame(number), picture, {}, size, size, cv::INTER_AREA);
        picture.convertTo(picture, -1, light);
        std::vector<unsigned char> stored;
        cv::imencode(".jpg", picture, stored, {cv::IMWRITE_JPEG_QUALITY, 60});
        picture = cv::imdecode(stored, cv::IMREAD_COLOR);
        MTCNNModel model(picture, faces, true);
        EXPECT_TRUE(model.detect());
        const std::vector<cv::Mat> crops = model.cropHeads(40);
        std::vector<cv::Mat> result;
        for (const DemoClass::Person &person : demo.truth(number)) {
            for (std::size_t i = 0; i < crops.size(); ++i) {
                if (model.m_rects[i].contains((person.face.tl() + person.face.br()) / 2 * size))
                    result.push_back(crops[i]);
            }
        }
        return result;
    }

    const DemoClass demo{DemoClass::findPhotographs()};
};

/// Size, light and compression do not hide a person.
TEST_F(DemoPeople, AreFoundAndKnownAgainInChangedPictures)
{
    const auto count = static_cast<std::size_t>(demo.names().size());
    const std::vector<cv::Mat> enrolled = heads(0, 1, 1);
    ASSERT_THAT(enrolled, SizeIs(count));
    for (std::size_t person = 0; person < count; ++person)
        ASSERT_EQ(ids->registerFace(enrolled[person], -1), int(person));
    int number = 0;
    for (const auto &[size, light] : {std::pair{0.8, 0.7}, {0.8, 1.3}, {1.25, 0.7}, {1.25, 1.3}}) {
        const std::vector<cv::Mat> changed = heads(number += 400, size, light);
        ASSERT_THAT(changed, SizeIs(count)) << number;
        for (std::size_t person = 0; person < count; ++person) {
            SCOPED_TRACE(Message() << demo.names()[int(person)].toStdString() << " in frame " << number);
            int id = -1;
            cv::Mat feature;
            std::vector<int> candidates;
            std::vector<double> scores;
            EXPECT_EQ(ids->identifyAll(changed[person], &id, &feature, &candidates, &scores, false), 0);
            EXPECT_EQ(id, int(person));
            ASSERT_THAT(scores, SizeIs(count));
            EXPECT_GE(std::exchange(scores[person], 0), 0.8);
            EXPECT_THAT(scores, Each(Lt(0.8)));
        }
    }
}

/// A picture is known by its content, whichever library asks and where it lies; so is a crop.
TEST_F(DemoPeople, AreLookedForOnceAFrame)
{
    const auto blazeface = open::LearnedNet::find(models + "model-config.yml", "blazeface");
    const auto recognition = open::LearnedNet::find(models + "model-config.yml", "recognition");
    ASSERT_TRUE(blazeface && recognition);
    const auto runsOf = [](open::LearnedNet &net, const auto &work) {
        const size_t before = net.runs();
        work();
        return net.runs() - before;
    };
    const auto detect = [this](const cv::Mat &picture) {
        std::vector<cv::Rect> rects;
        std::vector<float> scores;
        faces->detect(picture, rects, scores, false);
        return rects;
    };
    const cv::Mat frame = demo.frame(7);
    std::vector<cv::Rect> found;
    const size_t once = runsOf(*blazeface, [&] {
        auto other = std::async(std::launch::async, detect, frame.clone());
        found = detect(frame);
        EXPECT_EQ(other.get(), found);
    });
    EXPECT_GE(found.size(), size_t(demo.names().size()));
    EXPECT_EQ(runsOf(*blazeface, [&] { EXPECT_EQ(detect(frame.clone()), found); }), 0U);
    cv::Mat next = frame.clone();
    next.at<cv::Vec3b>(1079, 1919)[2] ^= 1;
    EXPECT_EQ(runsOf(*blazeface, [&] { detect(next); }), once);

    const cv::Mat face = heads(7, 1, 1).front();
    EXPECT_EQ(runsOf(*recognition,
                     [&] {
                         cv::Mat feature;
                         EXPECT_GE(ids->registerFace(face, -1), 0);
                         EXPECT_EQ(ids->extractFeature(face.clone(), &feature, false), 0);
                     }),
              1U);
}

/// Each way to raise a hand, each gesture that is none, and arms that stand beside a neighbour's head.
TEST_F(DemoPeople, WhoRaiseAHandAreTold)
{
    const auto movenet = open::LearnedNet::find(models + "model-config.yml", "movenet");
    ASSERT_TRUE(movenet);
    std::set<Gesture> shown;
    for (const int number : {400, 690, 1160, 1420}) {
        SCOPED_TRACE(number);
        const cv::Mat frame = demo.frame(number);
        const auto people = demo.truth(number);
        std::vector<cv::Rect> own, crops;
        for (const DemoClass::Person &person : people) {
            const cv::Rect body = own.emplace_back(bodyOf(person.name, number));
            // The service shows three crops that grow upwards by some pixels.
            for (const int grown : {6, 12, 18})
                crops.emplace_back(body.x - 3, body.y - grown, body.width + 6, body.height + grown - 5);
        }
        const size_t before = movenet->runs();
        const auto [labels, scores] = classified(*hands, frame, crops);
        EXPECT_EQ(movenet->runs() - before, own.size()) << "one look for each person";
        classified(*poses, frame, own);
        EXPECT_EQ(movenet->runs() - before, own.size()) << "which the poses share";

        ASSERT_THAT(labels, SizeIs(crops.size()));
        EXPECT_THAT(scores, AllOf(SizeIs(crops.size()), Each(Ge(0.8F))));
        for (std::size_t i = 0; i < crops.size(); ++i) {
            const DemoClass::Person &person = people[int(i / 3)];
            shown.insert(person.gesture);
            EXPECT_EQ(labels[i] == 0, person.handUp)
                << person.name.toStdString() << " gesture " << int(person.gesture);
        }
    }
    EXPECT_THAT(shown, SizeIs(7));
}

TEST_F(DemoPeople, SmilesAndGlassesAreTold)
{
    const cv::Mat frame = demo.frame(100);
    std::vector<cv::Rect> rects;
    for (const DemoClass::Person &person : demo.truth(100)) {
        rects.push_back(paddedFace(person));
        int label = -1;
        float score = -1;
        EXPECT_EQ(emotions->classify(frame(rects.back()), &label, &score, false), 0);
        EXPECT_EQ(label == 1 && score >= 0.75F, person.smiling) << person.name.toStdString() << " " << score;
    }
    std::vector<FaceAttrResult> results;
    attributes->detect(frame, rects, results, false);
    ASSERT_THAT(results, SizeIs(rects.size()));
    for (std::size_t i = 0; i < results.size(); ++i)
        EXPECT_THAT(results[i].labels, ElementsAre(demo.truth(100)[int(i)].glasses ? 1 : 0)) << rects[i];
}

/// Told for several pictures at once: the service asks without a lock.
TEST_F(DemoPeople, TakePosesByTheirFaces)
{
    const cv::Mat upright = demo.frame(40);
    const cv::Rect body = bodyOf("Dora", 40);
    const auto turned = [&](double degrees) {
        const cv::Point2f middle = cv::Point2f(body.tl() + body.br()) / 2;
        cv::Mat picture;
        cv::warpAffine(upright, picture, cv::getRotationMatrix2D(middle, degrees, 1), upright.size());
        return picture;
    };
    cv::Mat covered = upright.clone();
    covered(body).setTo(cv::Scalar(90, 60, 40));

    const auto classify = [&](const cv::Mat &picture) {
        return classified(*poses, picture, std::vector<cv::Rect>(4, body)).first;
    };
    std::future<std::vector<int>> answers[4];
    const cv::Mat pictures[] = {upright, turned(25), turned(180), covered};
    for (int i = 0; i < 4; ++i)
        answers[i] = std::async(std::launch::async, classify, pictures[i]);
    EXPECT_THAT(answers[0].get(), ElementsAre(2, 2, 2, 2)) << "upright";
    EXPECT_THAT(answers[1].get(), ElementsAre(3, 3, 3, 3)) << "leaning";
    EXPECT_THAT(answers[2].get(), ElementsAre(1, 1, 1, 1)) << "upside down";
    EXPECT_THAT(answers[3].get(), ElementsAre(1, 1, 1, 1)) << "covered";
}

} // namespace
