// Holds the converted nets against what the packages' own code made of the same pattern
// (mirovane/opencv/model/nets/record.mjs).
#include "bodies.h"
#include "learnednet.h"

#include <gmock/gmock.h>
#include <opencv2/imgproc.hpp>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

using namespace ::testing;
using namespace mirovane::open;

namespace {

/// The pattern of the recording.
cv::Mat pattern(int side, int channels)
{
    cv::Mat picture(side, side, CV_8UC(channels));
    for (int y = 0; y < side; ++y) {
        for (int x = 0; x < side; ++x) {
            for (int c = 0; c < channels; ++c)
                picture.ptr(y, x)[c] = uchar(((x * x * 7 + y * y * 3 + x * y * 5) >> 6) + 60 * c);
        }
    }
    return picture;
}

void expectAnswersLikeItsOriginal(const std::string &name, const PixelScale &scale)
{
    QFile file(QString::fromStdString(NET_RECORDS "/" + name + ".json"));
    ASSERT_TRUE(file.open(QFile::ReadOnly)) << name;
    const auto record = QJsonDocument::fromJson(file.readAll()).object();
    const auto expected = record["outputs"].toObject();
    ASSERT_FALSE(expected.isEmpty()) << name;

    const auto net = LearnedNet::find(MODEL_FOLDER "/model-config.yml", name);
    ASSERT_TRUE(net) << name;
    auto picture = pattern(record["side"].toInt(), record["channels"].toInt());
    if (picture.channels() == 3)
        cv::cvtColor(picture, picture, cv::COLOR_RGB2BGR);
    std::vector<std::string> outputs;
    for (const auto &output : expected.keys())
        outputs.push_back(output.toStdString());
    // Two in one batch: the second must not see the first.
    const cv::Mat empty(picture.size(), picture.type(), cv::Scalar::all(0));
    const auto blobs = net->run(inputOf({empty, picture}, scale), outputs);

    for (size_t i = 0; i < outputs.size(); ++i) {
        SCOPED_TRACE(name + ' ' + outputs[i]);
        const auto output = expected[QString::fromStdString(outputs[i])].toObject();
        const auto shape = output["shape"].toArray();
        const int rows = shape[0].toInt();
        const int columns = shape[1].toInt();
        const int channels = shape[2].toInt();
        const std::vector<int> size{2, channels, rows, columns};
        ASSERT_EQ(std::vector<int>(blobs[i].size.p, blobs[i].size.p + blobs[i].dims), size);
        const double range = output["high"].toDouble() - output["low"].toDouble();
        double largest = 0;
        int place = 0;
        for (const auto value : output["values"].toArray()) {
            const int pixel = place / channels;
            const float ours = blobs[i].ptr<float>(1, place % channels, pixel / columns)[pixel % columns];
            largest = std::max(largest, std::abs(ours - value.toDouble()));
            place += output["step"].toInt();
        }
        EXPECT_GE(place, rows * columns * channels);
        EXPECT_LE(largest, 1e-3 * range);
    }
}

TEST(ConvertedNets, AnswerLikeTheirOriginals)
{
    for (const char *name : {"blazeface", "emotion", "movenet"})
        expectAnswersLikeItsOriginal(name, evenScale);
    for (const char *name : {"landmark68", "recognition", "expression"})
        expectAnswersLikeItsOriginal(name, faceScale);
}

SeenFace faceAt(float x, float y, float width)
{
    SeenFace face;
    face.box = {x, y, width, width};
    return face;
}

cv::Rect padded(const SeenFace &face, const cv::Size &size)
{
    cv::Rect box(face.box);
    return (box - cv::Point(5, 5) + cv::Size(10, 10)) & cv::Rect({}, size);
}

/// The service gives a body to the first face that lies wholly in it.
TEST(Bodies, CoverTheirOwnFaceAndNoOther)
{
    const cv::Size size(640, 360);
    for (const float apart : {1.1F, 1.5F, 3.0F}) {
        for (const float width : {24.0F, 80.0F}) {
            SCOPED_TRACE(Message() << width << " pixels, " << apart);
            const std::vector<SeenFace> faces{faceAt(100, 60, width), faceAt(100 + apart * width, 70, width),
                                              faceAt(100, 60 + 2 * width, width), faceAt(0, 0, width),
                                              faceAt(640 - width, 200, width)};
            const auto bodies = bodiesOf(faces, size);
            ASSERT_THAT(bodies, SizeIs(faces.size()));
            for (std::size_t body = 0; body < bodies.size(); ++body) {
                EXPECT_EQ(bodies[body] & cv::Rect({}, size), bodies[body]);
                EXPECT_EQ(bodies[body] & padded(faces[body], size), padded(faces[body], size)) << body;
                if (body < 2) {
                    const auto other = padded(faces[1 - body], size);
                    EXPECT_NE(bodies[body] & other, other) << body;
                }
                const cv::Rect moved(bodies[body].x - 3, bodies[body].y - 18, bodies[body].width + 6,
                                     bodies[body].height + 13);
                EXPECT_EQ(ownerOf(moved, faces, size), int(body));
            }
            EXPECT_EQ(ownerOf({400, 300, 60, 60}, faces, size), -1);
        }
    }
}

} // namespace
