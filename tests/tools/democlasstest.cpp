#include "democlass.h"

#include <gtest/gtest.h>

namespace {

const DemoClass &demoClass()
{
    static const DemoClass demo(DemoClass::findPhotographs());
    return demo;
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
