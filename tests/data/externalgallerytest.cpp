#include "externalgallery.h"
#include "logcapture.h"

#include <gtest/gtest.h>
#include <thread>

namespace {

cv::Mat flat(double value)
{
    return cv::Mat(1, 64, CV_32F, cv::Scalar(value));
}

class ExternalGalleryTest : public ::testing::Test
{
protected:
    ExternalGalleryTest() { gallery->clear(); }

    void add(const QString &stuID, double value)
    {
        cv::Mat feature = flat(value);
        gallery->addFaceFeature(stuID, feature);
        feature.setTo(-1); // the item has a copy
    }

    /// The valid items as "id=value".
    QString valid()
    {
        QStringList items;
        for (const auto &item : gallery->getValidFaceFeatures())
            items.append(QString("%1=%2").arg(item->stuID).arg(cv::Mat(item->feature).at<float>(63)));
        return items.join(' ');
    }

    LogCapture log;
    ExternalGallery *gallery = ExternalGallery::instance();
};

TEST_F(ExternalGalleryTest, KeepsOneItemForAnIdThatCanBeSwitchedOff)
{
    add("b", 1);
    add("a", 2);
    add("b", 3);
    EXPECT_EQ(valid(), "a=2 b=3");
    const auto handedOut = gallery->getValidFaceFeatures();
    gallery->disableFaceFeature("a");
    add("a", 4);
    EXPECT_EQ(valid(), "b=3");
    EXPECT_FALSE(handedOut[0]->valid);
    gallery->enableFaceFeature("a");
    EXPECT_EQ(valid(), "a=4 b=3");
    const QStringList logged = log.takeLines();
    EXPECT_EQ(logged[1], "info: [ExternalGallery] add student: a");
    EXPECT_EQ(logged[2], "info: [ExternalGallery] update student: b");
    EXPECT_EQ(logged.last(), "info: [ExternalGallery] stuID: a valid: true");

    cv::Mat empty;
    gallery->addFaceFeature("c", empty);
    add("", 1);
    gallery->disableFaceFeature("x");
    EXPECT_EQ(log.takeLines(), QStringList("warning: [ExternalGallery] can't find student: x"));
    gallery->clear();
    EXPECT_EQ(valid(), "");
    EXPECT_EQ(cv::Mat(handedOut[0]->feature).at<float>(0), 4) << "a list that was handed out outlives this";
}

TEST_F(ExternalGalleryTest, AReaderSeesWholeFeatures)
{
    add("a", 0);
    const auto list = gallery->getValidFaceFeatures();
    std::thread writer([&] {
        for (int i = 1; i <= 2000; ++i)
            add("a", i);
    });
    float last = 0;
    do {
        const cv::Mat feature = list[0]->feature;
        ASSERT_EQ(cv::norm(feature, flat(feature.at<float>(0)), cv::NORM_INF), 0);
        ASSERT_GE(feature.at<float>(0), last);
        last = feature.at<float>(0);
    } while (last < 2000);
    writer.join();
}

} // namespace
