// Holds the converted nets against what the packages' own code made of the same pattern
// (mirovane/opencv/model/nets/record.mjs).
#include "learnednet.h"

#include <gmock/gmock.h>

#include <cmath>
#include <opencv2/imgproc.hpp>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

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

struct Original
{
    const char *net;
    PixelScale scale;
};

class ConvertedNets : public TestWithParam<Original>
{
};

TEST_P(ConvertedNets, AnswerLikeTheirOriginals)
{
    const std::string name = GetParam().net;
    QFile file(QString::fromStdString(NET_RECORDS "/" + name + ".json"));
    ASSERT_TRUE(file.open(QFile::ReadOnly));
    const auto record = QJsonDocument::fromJson(file.readAll()).object();
    const auto expected = record["outputs"].toObject();
    ASSERT_FALSE(expected.isEmpty());

    const auto net = LearnedNet::find(MODEL_FOLDER "/model-config.yml", name);
    ASSERT_TRUE(net);
    auto picture = pattern(record["side"].toInt(), record["channels"].toInt());
    if (picture.channels() == 3)
        cv::cvtColor(picture, picture, cv::COLOR_RGB2BGR);
    std::vector<std::string> outputs;
    for (const auto &output : expected.keys())
        outputs.push_back(output.toStdString());
    // Two in one batch: the second must not see the first.
    const cv::Mat empty(picture.size(), picture.type(), cv::Scalar::all(0));
    const auto blobs = net->run(inputOf({empty, picture}, GetParam().scale), outputs);

    for (size_t i = 0; i < outputs.size(); ++i) {
        SCOPED_TRACE(outputs[i]);
        const auto output = expected[QString::fromStdString(outputs[i])].toObject();
        const auto shape = output["shape"].toArray();
        const int rows = shape[0].toInt();
        const int columns = shape[1].toInt();
        const int channels = shape[2].toInt();
        const std::vector<int> size{2, channels, rows, columns};
        ASSERT_EQ(std::vector<int>(blobs[i].size.p, blobs[i].size.p + blobs[i].dims), size);
        const double range = output["high"].toDouble() - output["low"].toDouble();
        ASSERT_GT(range, 0);
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
        RecordProperty(outputs[i], std::to_string(largest / range));
    }
}

INSTANTIATE_TEST_SUITE_P(Nets, ConvertedNets,
                         Values(Original{"blazeface", evenScale}, Original{"landmark68", faceScale},
                                Original{"recognition", faceScale}, Original{"expression", faceScale},
                                Original{"emotion", evenScale}, Original{"movenet", evenScale}),
                         [](const auto &tested) { return std::string(tested.param.net); });

} // namespace
