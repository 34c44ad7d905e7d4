#include "screenshotcheck.h"

#include "democlass.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

namespace {

QRect rectangle(const QJsonValue &value)
{
    const QJsonArray sides = value.toArray();
    return {sides[0].toInt(), sides[1].toInt(), sides[2].toInt(), sides[3].toInt()};
}

/// The share of 32 by 18 fields that have the colour of the demo class; people move, and marks lie over them.
double likeness(const QImage &shown, const cv::Mat &frame)
{
    const QImage picture = shown.convertToFormat(QImage::Format_RGB888);
    const cv::Mat rgb(picture.height(), picture.width(), CV_8UC3, const_cast<uchar *>(picture.constBits()),
                      std::size_t(picture.bytesPerLine()));
    cv::Mat left, right;
    cv::resize(rgb, left, {32, 18}, 0, 0, cv::INTER_AREA);
    cv::resize(frame, right, {32, 18}, 0, 0, cv::INTER_AREA);
    cv::cvtColor(right, right, cv::COLOR_BGR2RGB);
    int alike = 0;
    for (int y = 0; y < 18; ++y)
        for (int x = 0; x < 32; ++x)
            alike +=
                cv::norm(cv::Vec3i(left.at<cv::Vec3b>(y, x)) - cv::Vec3i(right.at<cv::Vec3b>(y, x))) < 40;
    return alike / (32.0 * 18);
}

/// How far the brightness scatters: text on its ground does, an empty field does not.
double contrast(const QImage &shown)
{
    const QImage grey = shown.convertToFormat(QImage::Format_Grayscale8);
    const cv::Mat values(grey.height(), grey.width(), CV_8UC1, const_cast<uchar *>(grey.constBits()),
                         std::size_t(grey.bytesPerLine()));
    cv::Scalar mean, deviation;
    cv::meanStdDev(values, mean, deviation);
    return deviation[0];
}

} // namespace

void expectDemoClass(const QString &file)
{
    const QImage shown(file);
    ASSERT_FALSE(shown.isNull()) << file.toStdString();
    const QJsonObject told = QJsonDocument::fromJson(shown.text("marks").toUtf8()).object();
    const DemoClass demo(DemoClass::findPhotographs());
    ASSERT_TRUE(demo.isValid());

    const QRect picture = rectangle(told["picture"]);
    ASSERT_GE(picture.width(), 400);
    EXPECT_GT(likeness(shown.copy(picture), demo.frame(0)), 0.7);

    // All but the walker stay near their places.
    const auto people = demo.truth(0);
    const auto isAtAFace = [&](const QRect &place) {
        return std::any_of(people.begin(), people.end(), [&](const DemoClass::Person &person) {
            const cv::Rect face = person.face & cv::Rect(place.x(), place.y(), place.width(), place.height());
            return face.area() > person.face.area() / 2;
        });
    };
    QSet<QString> names;
    int hands = 0;
    for (const auto &value : told["marks"].toArray()) {
        const QJsonObject mark = value.toObject();
        const QRect place = rectangle(mark["place"]), label = rectangle(mark["label"]);
        if (mark["kind"] == "hand" && isAtAFace(place))
            ++hands;
        if (!label.isEmpty() && isAtAFace(place) && contrast(shown.copy(label)) > 25)
            names.insert(mark["student"].toString());
    }
    EXPECT_GE(names.size(), 3);
    EXPECT_GE(hands, 1);
}
