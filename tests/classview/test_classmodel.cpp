#include "classmodel.h"
#include "messages.h"

#include <gmock/gmock.h>

#include <limits>

namespace {

using ::testing::IsEmpty;

QVariantMap entry(const QString &student, int x, int state = 0)
{
    return {{"stuID", student}, {"state", state}, {"x", x}, {"y", 20}, {"width", 100}, {"height", 200}};
}

AiEvent event(ai::Event code, const QVariantMap &info)
{
    return {ai::code(code), info, "execute", "id"};
}

AiEvent hands(const QVariantList &students)
{
    return event(ai::Event::Hands, {{"handupStudents", students}});
}

class ClassModelTest : public ::testing::Test
{
protected:
    /// "kind student", sorted.
    QStringList marks(qint64 now) const
    {
        QStringList names;
        for (const Mark &mark : model.marks(now))
            names.append(QString::number(int(mark.kind)) + ' ' + mark.student);
        names.sort();
        return names;
    }
    static QString mark(MarkKind kind, const QString &student)
    {
        return QString::number(int(kind)) + ' ' + student;
    }

    ClassModel model;
};

TEST_F(ClassModelTest, AnEventReplacesWhatTheLastOfItsKindHasTold)
{
    model.take(hands({entry("ada", 10), entry("ben", 300)}), 1000);
    const QVariantList states{entry("ben", 310, 2), entry("cleo", 600, 1)};
    model.take(event(ai::Event::Attention, {{"concerntration", 1.2}, {"studentStates", states}}), 1500);
    EXPECT_EQ(marks(1500),
              (QStringList{mark(MarkKind::Body, "ben"), mark(MarkKind::Body, "cleo"),
                           mark(MarkKind::Hand, "ada"), mark(MarkKind::Hand, "ben"),
                           mark(MarkKind::Attention, "ben"), mark(MarkKind::Attention, "cleo")}));
    model.take(hands({}), 2000);
    EXPECT_EQ(marks(2000).filter(QRegExp("^2")), QStringList()) << "a hand that is not told is down";

    ASSERT_EQ(model.lesson().size(), 3);
    EXPECT_EQ(model.lesson()[0].hands, (QStringList{"ada", "ben"}));
    EXPECT_DOUBLE_EQ(*model.lesson()[1].attention, 0.6) << "the sum over the students";
    EXPECT_EQ(model.students().size(), 3);
    EXPECT_EQ(model.students()[2].lastSeen, 1500);
}

TEST_F(ClassModelTest, WhatIsOlderThanTheRhythmOfItsAnalysisFadesAndGoes)
{
    for (const qint64 time : {10000, 14000, 18000})
        model.take(hands({entry("ada", 10)}), time);
    const Mark slow = model.marks(18000).last();
    EXPECT_EQ(model.opacity(slow, 18000 + 5900), 1) << "one event in four seconds";
    EXPECT_LT(model.opacity(slow, 18000 + 12000), 0.8);
    EXPECT_GT(model.opacity(slow, 18000 + 12000), 0.2);
    EXPECT_THAT(marks(18000 + 24100), IsEmpty());

    for (qint64 time = 30000; time < 45000; time += 1000)
        model.take(hands({entry("ada", 10)}), time);
    EXPECT_LT(model.opacity(model.marks(44000).last(), 48000), 0.8) << "the rhythm is measured";
    model.stopped(MarkKind::Hand);
    EXPECT_THAT(marks(44000).filter(QRegExp("^2")), IsEmpty());
}

TEST_F(ClassModelTest, RenamingDeletingAndNamingReachEverythingThatIsKnown)
{
    const QVariantMap face{{"gid", 0}, {"stuID", ""}, {"x", 50}, {"y", 60}, {"width", 90}, {"height", 90}};
    model.take(event(ai::Event::Faces, {{"galleries", QVariantList{face}}}), 100);
    model.nameFace({50, 60, 90, 90}, "ada");
    EXPECT_EQ(model.faces()[0].student, "ada");
    EXPECT_TRUE(model.knows("ada"));
    model.take(hands({entry("ada", 10)}), 200);
    model.rename("ada", "eve");
    EXPECT_EQ(marks(200), (QStringList{mark(MarkKind::Face, "eve"), mark(MarkKind::Body, "eve"),
                                       mark(MarkKind::Hand, "eve")}));
    model.remove("eve");
    EXPECT_EQ(marks(200), QStringList{mark(MarkKind::Face, "")}) << "the face is still there, without a name";
    EXPECT_THAT(model.students(), IsEmpty());
}

TEST_F(ClassModelTest, TheListOfPicturesTellsWhoIsEnrolled)
{
    model.take(hands({entry("ada", 10), entry("ben", 10)}), 700);
    const QVariantMap picture{{"stuID", "ben"}, {"score", 71.5}};
    model.take(event(ai::Event::BestPictures, {{"bestGalleries", QVariantList{picture}}}), 800);
    ASSERT_EQ(model.students().size(), 1);
    EXPECT_EQ(model.students()[0].score, 71.5);
    EXPECT_EQ(model.students()[0].lastSeen, 700) << "what is known of him stays";
}

TEST_F(ClassModelTest, TheWayOfAFollowedStudentAndTheBonesOfAPlayerAreKept)
{
    for (int x = 0; x < 300; ++x)
        model.take(event(ai::Event::Followed, entry("ada", x)), 1000 + x);
    const Mark followed = model.marks(1300).last();
    EXPECT_LE(followed.points.size(), 120);
    EXPECT_EQ(followed.points.last(), QPoint(299 + 49, 119));

    const QVariantList regions{entry("ben", 5)};
    model.take(event(ai::Event::GameRegions, {{"functionGameShowRegion", regions}}), 2000);
    const QVariantMap player{{"stuID", "ben"}, {"bones", QVariantList{QVariantMap{{"x", 7}, {"y", 8}}}}};
    model.take(event(ai::Event::Game, {{"functionGameResult", QVariantList{player}}}), 2100);
    EXPECT_EQ(model.marks(2100).last().points, QPolygon({QPoint(7, 8)}));
}

TEST_F(ClassModelTest, EventsOfAnyContentDoNoHarm)
{
    const QVariant values[] = {{},
                               "text",
                               7,
                               QVariantList{1, "a", QVariantMap()},
                               QVariantMap{{"stuID", 3}},
                               entry("x", std::numeric_limits<int>::max())};
    const auto keys =
        QString("galleries studentStates handupStudents functionGameShowRegion functionGameResult "
                "studentsAttribute successList bestGalleries stuID concerntration status x width")
            .split(' ');
    for (uint code = 1010; code <= 1023; ++code) {
        for (const auto &value : values) {
            QVariantMap one, two;
            for (const auto &key : keys) {
                one[key] = value;
                two[key] = QVariantList{value, value};
            }
            model.take({code, one, {}, {}}, code);
            model.take({code, two, {}, {}}, code);
        }
    }
    EXPECT_LE(model.marks(1030).size(), 30);
}

} // namespace
