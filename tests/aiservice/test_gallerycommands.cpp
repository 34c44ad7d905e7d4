#include "fixture.h"

namespace {

TEST_F(ControllerTest, RegistrationReachesAllFourPlaces)
{
    controller->setExternalGallery({{"galleries", QVariantList{gallery("a", 50), gallery("x", 60)}}}, "");
    EXPECT_EQ(enrol({gallery("a", 50, {-7, -8, 5000, 5000}), QVariantMap{{"stuID", "no face"}},
                     gallery("a", 70), gallery("b", 90)},
                    "77"),
              error(0));
    const auto events = catcher.events(1018);
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].requestID, "77");
    EXPECT_EQ(ids(events[0].info["successList"]), QStringList({"a", "b"}));
    EXPECT_EQ(known(), QStringList({"a", "b"}));
    EXPECT_EQ(stored(), QStringList({"a", "b"}));
    EXPECT_EQ(externals(), QStringList("x"));
    EXPECT_EQ(recognisers.ids->entries.size(), 2U);

    const StudentInfo a = students::get("a");
    EXPECT_EQ(a.faceRect, cv::Rect(0, 0, 1920, 1080));
    EXPECT_EQ(a.galleryImage.size(), cv::Size(128, 128));
    EXPECT_NE(a.galleryImage.data, a.bestGallery.data);
    EXPECT_NE(a.registerFeature.data, a.meanFeature.data);
    EXPECT_EQ(a.galleryScore, 0.7);
}

TEST_F(ControllerTest, SmallFacesAreTakenOutOfTheRecogniserAgain)
{
    enrol({gallery("small", 50, {0, 0, 30, 100}), gallery("tiny", 70, {0, 0, 15, 15}),
           gallery("edge", 90, {0, 0, 40, 40}), gallery("low", 110, {0, 0, 100, 20})});
    EXPECT_FALSE(students::get("small").faceIDValid);
    EXPECT_TRUE(students::get("tiny").faceIDValid);
    EXPECT_TRUE(students::get("edge").faceIDValid);
    EXPECT_FALSE(students::get("low").faceIDValid);
    EXPECT_EQ(recognisers.ids->entries.size(), 2U);
    EXPECT_GE(students::get("small").faceID, 0);
    // Unknown to the recogniser, and still deletable.
    EXPECT_EQ(controller->deleteGallery({{"stuID", "small"}}), error(0));
}

TEST_F(ControllerTest, AFailingStepLeavesTheEarlierOnesDone)
{
    recognisers.ids->failRegister = true;
    enrol({gallery("a", 50)});
    EXPECT_TRUE(known().isEmpty());
    recognisers.ids->failRegister = false;
    recognisers.ids->failRemove = true; // the small face stays in the recogniser, unknown to everybody else
    enrol({gallery("a", 50, {0, 0, 30, 30})});
    EXPECT_TRUE(known().isEmpty());
    EXPECT_TRUE(stored().isEmpty());
    EXPECT_EQ(recognisers.ids->entries.size(), 1U);

    enrol({gallery("b", 90)});
    EXPECT_EQ(controller->deleteGallery({{"stuID", "b"}}), error(-2, "delete galleries: detect failed"));
    EXPECT_EQ(known(), QStringList("b"));
    EXPECT_EQ(stored(), QStringList("b"));

    // A rename goes on although the face under the new id couldn't be removed.
    enrol({gallery("c", 110)});
    EXPECT_EQ(controller->updateStudentID({{"oldStuID", "b"}, {"newStuID", "c"}}), error(0));
    EXPECT_EQ(known(), QStringList("c"));
    EXPECT_EQ(stored(), QStringList("c"));
    recognisers.ids->failRemove = false;
}

TEST_F(ControllerTest, PicturesMustBeFacesOfTheRightSize)
{
    QVariantMap odd = gallery("odd", 50);
    for (const QString &text :
         {faceText(50, 127), QString("data:image/png;base64,AAAA"), QString("nothing"), QString()}) {
        odd["faceImg"] = text;
        EXPECT_EQ(enrol({odd}), error(0));
        EXPECT_TRUE(known().isEmpty());
    }
    odd["faceImg"] = faceText(50, 127);
    const QVariantMap reply =
        controller->setExternalGallery({{"galleries", QVariantList{odd, gallery("good", 90)}}}, "");
    EXPECT_EQ(reply["rsp_error"], QVariant(0));
    EXPECT_EQ(ids(reply["rsp_data"].toMap()["failedStuList"]), QStringList("odd"));
    EXPECT_EQ(externals(), QStringList("good"));
}

TEST_F(ControllerTest, AnIncompleteExternalEntryEndsTheRequestAndKeepsTheEarlierOnes)
{
    EXPECT_EQ(controller->setExternalGallery({}, ""), error(-12));
    EXPECT_EQ(controller->setExternalGallery(
                  {{"galleries", QVariantList{gallery("a", 50), gallery("b", 70),
                                              QVariantMap{{"faceImg", "x"}}, gallery("c", 90)}}},
                  ""),
              error(-12));
    EXPECT_EQ(externals(), QStringList({"a", "b"}));
    EXPECT_EQ(QSqliteStorage::instance()->getHistoryGalleries()["galleries"].toList().size(), 2);
    recognisers.ids->failExtract = true;
    const QVariantMap reply =
        controller->setExternalGallery({{"galleries", QVariantList{gallery("d", 50)}}}, "");
    EXPECT_EQ(ids(reply["rsp_data"].toMap()["failedStuList"]), QStringList("d"));
    EXPECT_EQ(controller->clearHistoryGalleries(""), error(0));
    EXPECT_TRUE(externals().isEmpty());
    EXPECT_TRUE(QSqliteStorage::instance()->getHistoryGalleries()["galleries"].toList().isEmpty());
}

TEST_F(ControllerTest, RenamingTakesOverTheNewId)
{
    controller->setExternalGallery({{"galleries", QVariantList{gallery("a", 50), gallery("b", 60)}}}, "");
    enrol({gallery("a", 50), gallery("b", 90)});
    EXPECT_EQ(controller->updateStudentID({{"oldStuID", "a"}}), error(-12));
    EXPECT_EQ(controller->updateStudentID({{"oldStuID", "a"}, {"newStuID", "b"}}), error(0));
    EXPECT_EQ(known(), QStringList("b"));
    EXPECT_EQ(stored(), QStringList("b"));
    EXPECT_EQ(students::get("b").faceID, 0);
    EXPECT_EQ(recognisers.ids->entries.size(), 1U);
    EXPECT_EQ(externals(), QStringList("a"));
    EXPECT_EQ(controller->updateStudentID({{"oldStuID", "nobody"}, {"newStuID", "c"}}), error(-1003));
    // A rename that fails has taken the face under the new id out of the recogniser all the same.
    EXPECT_EQ(controller->updateStudentID({{"oldStuID", "nobody"}, {"newStuID", "b"}}), error(-1003));
    EXPECT_TRUE(recognisers.ids->entries.empty());
}

TEST_F(ControllerTest, ReplacingAFaceIsADeleteAndARegistration)
{
    const auto replace = [&](const QString &stuID, const QString &face) {
        return controller->updateStudentGallery(
            {{"oldStuID", stuID}, {"faceImageBase64", face}, {"x", -5}, {"width", 4000}});
    };
    EXPECT_EQ(replace("", faceText(50)), error(-12));
    EXPECT_EQ(replace("new", faceText(50)), error(0));                  // the failed delete doesn't stop it
    EXPECT_EQ(students::get("new").faceRect, cv::Rect(-5, 0, 4000, 0)); // not clamped here
    EXPECT_EQ(replace("new", faceText(90)), error(0));
    EXPECT_EQ(stored(), QStringList("new"));
    EXPECT_EQ(replace("new", "broken"), error(-12));
    EXPECT_TRUE(known().isEmpty());
    EXPECT_TRUE(stored().isEmpty());
}

TEST_F(ControllerTest, DeletingFreesTheIdAndTurnsTheExternalFaceOnAgain)
{
    controller->setExternalGallery({{"galleries", QVariantList{gallery("a", 50)}}}, "");
    enrol({gallery("a", 50)});
    EXPECT_TRUE(externals().isEmpty());
    EXPECT_EQ(controller->deleteGallery({}), error(-12));
    EXPECT_EQ(controller->deleteGallery({{"stuID", "nobody"}}), error(-1003));
    EXPECT_EQ(controller->deleteGallery({{"stuID", "a"}}), error(0));
    EXPECT_EQ(externals(), QStringList("a"));
    EXPECT_TRUE(stored().isEmpty());
    EXPECT_TRUE(recognisers.ids->entries.empty());
}

TEST_F(ControllerTest, BestGalleriesComeAsOneEvent)
{
    EXPECT_EQ(controller->bestGallery("5"), error(0));
    enrol({gallery("b", 90), gallery("a", 50)});
    EXPECT_EQ(controller->bestGallery("6"), error(0));
    const auto events = catcher.events(1021);
    ASSERT_EQ(events.size(), 2U);
    EXPECT_TRUE(events[0].info["bestGalleries"].toList().isEmpty());
    EXPECT_EQ(events[1].requestID, "6");
    EXPECT_EQ(ids(events[1].info["bestGalleries"]), QStringList({"a", "b"}));
    const QVariantMap first = events[1].info["bestGalleries"].toList()[0].toMap();
    EXPECT_EQ(first["score"], QVariant(0.7 * 100));
    EXPECT_EQ(ai_image::convertBase642Mat(first["bestFaceImg"].toString()).size(), cv::Size(128, 128));
}

TEST_F(ControllerTest, FetchingNeedsAKnownStudentAndOneRunAtATime)
{
    EXPECT_EQ(controller->fetchGalleryNew({{"other", 1}}, "1"), error(-1003));
    EXPECT_EQ(controller->fetchGalleryNew({{"stuID", "nobody"}}, "1"), error(-1003));
    enrol({gallery("a", 50, {300, 300, 80, 80})});
    EXPECT_EQ(controller->fetchGalleryNew({}, "1"), error(0));
    EXPECT_EQ(controller->fetchGalleryNew({}, "2"), error(-15, "fetch galleries already start"));
    // Refused, but its parameters count for the running one.
    EXPECT_EQ(controller->fetchGalleryNew({{"stuID", "a"}}, "3"),
              error(-15, "fetch galleries already start"));
    recognisers.faces->finds({{10, 10, 90, 90}});
    sendFrame();
    ASSERT_TRUE(eventually([&] { return catcher.events(1011).size() == 1; }));
    const auto event = catcher.events(1011)[0];
    EXPECT_EQ(event.requestID, "1");
    EXPECT_EQ(event.info["galleries"].toList()[0].toMap()["stuID"], "a");
}

} // namespace
