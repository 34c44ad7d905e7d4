#include "democlass.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>
#include <opencv2/objdetect.hpp>

namespace {

const DemoClass &demoClass()
{
    static const DemoClass demo(DemoClass::findPhotographs());
    return demo;
}

double overlap(const cv::Rect &a, const cv::Rect &b)
{
    const double common = (a & b).area();
    return common / (a.area() + b.area() - common);
}

/// Mean difference of two frames over a region.
double change(const cv::Mat &a, const cv::Mat &b, const cv::Rect &region)
{
    cv::Mat difference;
    cv::absdiff(a(region), b(region), difference);
    const cv::Scalar mean = cv::mean(difference);
    return (mean[0] + mean[1] + mean[2]) / 3;
}

} // namespace

TEST(DemoClassTest, refusesAFolderWithoutThePhotographs)
{
    const DemoClass demo(QStringLiteral("/no/such/folder"));
    EXPECT_FALSE(demo.isValid());
    EXPECT_TRUE(demo.error().contains(QStringLiteral("/no/such/folder"))) << qPrintable(demo.error());
    EXPECT_TRUE(demo.frame(0).empty());
    EXPECT_TRUE(demo.truth(0).isEmpty());
}

TEST(DemoClassTest, facesAreWhereTheTruthSays)
{
    ASSERT_TRUE(demoClass().isValid()) << qPrintable(demoClass().error());
    cv::CascadeClassifier cascade("/usr/share/opencv4/haarcascades/haarcascade_frontalface_alt2.xml");
    ASSERT_FALSE(cascade.empty());
    int people = 0, found = 0;
    for (const int number : {0, 400, 1700}) {
        const cv::Mat frame = demoClass().frame(number);
        ASSERT_EQ(frame.size(), cv::Size(1920, 1080));
        ASSERT_EQ(frame.type(), CV_8UC3);
        cv::Mat grey;
        cv::cvtColor(frame, grey, cv::COLOR_BGR2GRAY);
        std::vector<cv::Rect> faces;
        cascade.detectMultiScale(grey, faces, 1.1, 4, 0, cv::Size(48, 48));
        for (const DemoClass::Person &person : demoClass().truth(number)) {
            ++people;
            for (const cv::Rect &face : faces)
                if (overlap(face, person.face) > 0.4) {
                    ++found;
                    break;
                }
        }
    }
    EXPECT_GE(people, 3 * 5);
    EXPECT_GE(found, people * 9 / 10);
}

TEST(DemoClassTest, truthIsInTheFrameAndMovesGently)
{
    const cv::Rect frame(0, 0, 1920, 1080);
    const QStringList names = demoClass().names();
    QVector<DemoClass::Person> before = demoClass().truth(0);
    for (int number = 0; number < 4000; number += 5) {
        const QVector<DemoClass::Person> now = demoClass().truth(number);
        ASSERT_EQ(now.size(), names.size());
        for (int i = 0; i < now.size(); ++i) {
            EXPECT_EQ(now[i].name, names[i]);
            EXPECT_EQ(now[i].face & frame & now[i].body, now[i].face) << number << qPrintable(names[i]);
            EXPECT_GE(now[i].face.width, 60);
            EXPECT_LE(now[i].face.width, 140);
            EXPECT_LE(cv::norm(now[i].face.tl() - before[i].face.tl()), 12) << number;
        }
        before = now;
    }
}

TEST(DemoClassTest, raisedHandsShowBesideTheHead)
{
    const cv::Mat down = demoClass().frame(0), up = demoClass().frame(420);
    const QVector<DemoClass::Person> truth = demoClass().truth(420);
    int raised = 0;
    for (int i = 0; i < truth.size(); ++i) {
        EXPECT_FALSE(demoClass().truth(0)[i].handUp);
        const cv::Rect &face = truth[i].face;
        const cv::Rect left(face.x - face.width * 6 / 5, face.y, face.width / 2, face.height / 2);
        const cv::Rect right(face.x + face.width * 17 / 10, face.y, face.width / 2, face.height / 2);
        const double most = std::max(change(down, up, left), change(down, up, right));
        if (truth[i].handUp) {
            ++raised;
            EXPECT_GT(most, 10) << qPrintable(truth[i].name);
        }
    }
    EXPECT_EQ(raised, 2);
}

TEST(DemoClassTest, framesOfOneNumberAreEqual)
{
    EXPECT_EQ(cv::norm(demoClass().frame(77), demoClass().frame(77), cv::NORM_INF), 0);
    EXPECT_GT(cv::norm(demoClass().frame(77), demoClass().frame(90), cv::NORM_INF), 0);
}
