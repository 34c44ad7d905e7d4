#include <gmock/gmock.h>
#include <mirovane/facedetectionmtcnn.h>
#include <mirovane/faceiddetection.h>

#include <fstream>
#include <limits>
#include <memory>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <QDir>

using mirovane::FaceDetectionMTCNN;
using mirovane::FaceIDDetection;
using ::testing::Each;
using ::testing::IsEmpty;
using ::testing::Lt;
using ::testing::SizeIs;

namespace {

const std::string models = MODEL_FOLDER "/";
const std::string stage1 = models + "face_propose.xml";
const std::string stage2 = models + "face_confirm.xml";
const std::string stage3 = models + "face_eyes.xml";

std::unique_ptr<FaceIDDetection> makeFaceID()
{
    return std::unique_ptr<FaceIDDetection>(FaceIDDetection::create(models + "face_id.yml", ""));
}

/// A photograph whose eyes were marked by hand.
struct Person
{
    const char *file;
    cv::Rect panel;
    cv::Point2d leftEye;
    cv::Point2d rightEye;

    double eyeDistance() const { return cv::norm(rightEye - leftEye); }
};

const std::vector<Person> people = {
    {"230501201_1.jpg", {0, 0, 584, 824}, {244, 365}, {365, 356}},
    {"227943776_1.jpg", {0, 0, 434, 434}, {172, 167}, {236, 171}},
    {"example.jpg", {0, 0, 387, 580}, {102, 290}, {262, 292}},
    {"12.jpg", {0, 0, 512, 468}, {216, 164}, {342, 161}},
    {"05.jpg", {0, 0, 512, 470}, {209, 226}, {338, 231}},
};

cv::Mat photograph(const Person &person)
{
    const auto whole = cv::imread(std::string(PHOTOGRAPHS "/opencv4/html/") + person.file);
    return whole.empty() ? whole : whole(person.panel);
}

/// The head crop that identification takes: the eyes level, 40 pixels apart, at (64, 57.6).
cv::Mat headCrop(const cv::Mat &picture, const cv::Point2d &leftEye, const cv::Point2d &rightEye)
{
    const auto across = rightEye - leftEye;
    const auto middle = (leftEye + rightEye) / 2;
    cv::Mat turn = cv::getRotationMatrix2D(middle, cv::fastAtan2(float(across.y), float(across.x)),
                                           40 / cv::norm(across));
    turn.at<double>(0, 2) += 64 - middle.x;
    turn.at<double>(1, 2) += 57.6 - middle.y;
    cv::Mat crop;
    cv::warpAffine(picture, crop, turn, {128, 128});
    return crop;
}

/// A textured picture that is its own for each seed.
cv::Mat pattern(unsigned seed)
{
    cv::RNG random(seed);
    cv::Mat small(16, 16, CV_8UC3);
    random.fill(small, cv::RNG::UNIFORM, 0, 256);
    cv::Mat picture;
    cv::resize(small, picture, {128, 128}, 0, 0, cv::INTER_CUBIC);
    return picture;
}

/// Pictures in which nobody can find anything, some of them broken.
std::vector<cv::Mat> emptyPictures()
{
    const cv::Mat colour(300, 400, CV_8UC3, cv::Scalar(90, 90, 90));
    return {cv::Mat(),
            colour,
            cv::Mat(300, 400, CV_8UC1, cv::Scalar(90)),
            cv::Mat(1, 1, CV_8UC3, cv::Scalar::all(0)),
            cv::Mat(1, 2000, CV_8UC3, cv::Scalar::all(200)),
            cv::Mat(2000, 25, CV_8UC3, cv::Scalar::all(200)),
            cv::Mat(128, 128, CV_32FC3, cv::Scalar::all(0.5)),
            cv::Mat(128, 128, CV_16UC1, cv::Scalar::all(7)),
            cv::Mat(128, 128, CV_8UC2, cv::Scalar::all(7))};
}

} // namespace

TEST(FaceRecognisers, filesThatAreNoModelsGiveNull)
{
    const std::string garbage = QDir::temp().filePath("garbage.xml").toStdString();
    std::ofstream(garbage) << "<?xml version=\"1.0\"?><opencv_storage><a>1</a";
    const std::string other = QDir::temp().filePath("other.yml").toStdString();
    std::ofstream(other)
        << "%YAML:1.0\n---\nclass: \"FaceIDDetection\"\nwavelengths: [ 6. ]\ndirections: 8\nface: [ 1, 2 ]\n";

    for (const std::string &bad : {garbage, other, models + "absent.xml", models, std::string()}) {
        EXPECT_EQ(FaceDetectionMTCNN::create(bad, stage2, stage3, ""), nullptr) << bad;
        EXPECT_EQ(FaceDetectionMTCNN::create(stage1, bad, stage3, ""), nullptr) << bad;
        EXPECT_EQ(FaceDetectionMTCNN::create(stage1, stage2, bad, ""), nullptr) << bad;
        EXPECT_EQ(FaceIDDetection::create(bad, ""), nullptr) << bad;
    }
}

TEST(FaceDetection, picturesWithoutFacesGiveNothing)
{
    const std::unique_ptr<FaceDetectionMTCNN> detector(
        FaceDetectionMTCNN::create(stage1, stage2, stage3, ""));
    ASSERT_TRUE(detector);
    std::vector<cv::Rect> faces;
    std::vector<float> scores;
    std::vector<std::vector<cv::Point>> landmarks;
    for (const auto &picture : emptyPictures()) {
        EXPECT_NO_THROW(detector->detectWithLandmarks(picture, faces, scores, landmarks, false));
        EXPECT_NO_THROW(detector->detect(picture, faces, scores, false));
    }
    EXPECT_THAT(faces, IsEmpty());
    EXPECT_THAT(scores, IsEmpty());
    EXPECT_THAT(landmarks, IsEmpty());
}

TEST(FaceID, wrongPicturesAreErrorsAndChangeNothing)
{
    const auto faceID = makeFaceID();
    ASSERT_TRUE(faceID);
    auto wrong = emptyPictures();
    wrong.push_back(cv::Mat(128, 128, CV_8UC3, cv::Scalar(3, 4, 5)));
    wrong.push_back(pattern(1)(cv::Rect(0, 0, 127, 128)));
    for (const auto &picture : wrong) {
        int id = 7;
        cv::Mat feature;
        std::vector<int> candidates;
        std::vector<double> scores;
        EXPECT_LT(faceID->registerFace(picture, -1), 0);
        EXPECT_LT(faceID->extractFeature(picture, &feature, false), -1) << "-1 would count as success";
        EXPECT_LT(faceID->identifyAll(picture, &id, &feature, &candidates, &scores, false), 0);
        EXPECT_LT(faceID->identify(picture, &id, false), 0);
        EXPECT_EQ(id, -1);
        EXPECT_TRUE(feature.empty());
    }
    EXPECT_LT(faceID->registerFace(pattern(1), -2), 0);
    EXPECT_LT(faceID->registerFace(pattern(1), std::numeric_limits<int>::max()), 0);
    EXPECT_EQ(faceID->registerFace(pattern(1), -1), 0);
}

TEST(FaceID, idsCountUpAndScoresAreIndexedById)
{
    const auto faceID = makeFaceID();
    ASSERT_TRUE(faceID);
    EXPECT_EQ(faceID->registerFace(pattern(0), -1), 0);
    EXPECT_EQ(faceID->registerFace(pattern(1), -1), 1);
    EXPECT_EQ(faceID->registerFace(pattern(4), 4), 4);
    EXPECT_EQ(faceID->registerFace(pattern(5), -1), 5);
    EXPECT_EQ(faceID->removeFace(5), 0);
    EXPECT_EQ(faceID->registerFace(pattern(6), -1), 6) << "an id is not used again at once";
    EXPECT_EQ(faceID->removeFace(1), 0);
    EXPECT_EQ(faceID->removeFace(1), 0);
    EXPECT_EQ(faceID->removeFace(-5), 0);

    int id = 0;
    cv::Mat feature;
    std::vector<int> candidates;
    std::vector<double> scores{9, 9, 9, 9, 9, 9, 9, 9, 9};
    EXPECT_EQ(faceID->identifyAll(pattern(4), &id, &feature, &candidates, &scores, false), 0);
    EXPECT_EQ(id, 4);
    EXPECT_EQ(feature.rows, 1);
    EXPECT_EQ(feature.type(), CV_32F);
    EXPECT_NEAR(cv::norm(feature), 1, 1e-5);
    ASSERT_THAT(scores, SizeIs(7));
    EXPECT_NEAR(scores[4], 1, 1e-5);
    for (const size_t hole : {1U, 2U, 3U, 5U})
        EXPECT_EQ(scores[hole], 0.0);
    EXPECT_EQ(faceID->registerFace(pattern(1), 4), 4) << "an id may be enrolled anew";
    EXPECT_EQ(faceID->identify(pattern(1), &id, false), 0);
    EXPECT_EQ(id, 4);

    faceID->clearFaces();
    EXPECT_EQ(faceID->identifyAll(pattern(4), &id, &feature, &candidates, &scores, false), 0);
    EXPECT_EQ(id, -1);
    EXPECT_THAT(scores, IsEmpty());
}

/// Size, light, compression and eyes that are off by two pixels do not hide a person.
TEST(FaceID, recognisesThePersonInChangedPictures)
{
    const auto faceID = makeFaceID();
    ASSERT_TRUE(faceID);
    for (const auto &person : people) {
        const auto picture = photograph(person);
        if (picture.empty())
            GTEST_SKIP() << "no photographs in " PHOTOGRAPHS;
        ASSERT_GE(faceID->registerFace(headCrop(picture, person.leftEye, person.rightEye), -1), 0);
    }
    const std::pair<double, double> changes[] = {{0.8, 0.7}, {0.8, 1.3}, {1.25, 0.7}, {1.25, 1.3}};
    for (size_t i = 0; i < people.size(); ++i) {
        const auto &person = people[i];
        for (const auto &[size, light] : changes) {
            const double scale = size * 30 / person.eyeDistance();
            cv::Mat changed;
            cv::resize(photograph(person), changed, {}, scale, scale, cv::INTER_AREA);
            changed.convertTo(changed, -1, light);
            std::vector<unsigned char> stored;
            cv::imencode(".jpg", changed, stored, {cv::IMWRITE_JPEG_QUALITY, 60});
            const double step = 2 * person.eyeDistance() * scale / 40;
            const auto crop = headCrop(cv::imdecode(stored, cv::IMREAD_COLOR),
                                       person.leftEye * scale + cv::Point2d(step, 0),
                                       person.rightEye * scale - cv::Point2d(0, step));
            int id = -1;
            cv::Mat feature;
            std::vector<int> candidates;
            std::vector<double> scores;
            EXPECT_EQ(faceID->identifyAll(crop, &id, &feature, &candidates, &scores, false), 0);
            EXPECT_EQ(id, int(i)) << person.file;
            EXPECT_GE(scores[i], 0.8) << person.file;
            scores[i] = 0;
            EXPECT_THAT(scores, Each(Lt(0.43))) << person.file;
        }
    }
}
