#include "fixture.h"

namespace {

TEST_F(ControllerTest, RegistrationReachesAllFourPlaces)
{
    setExternal({gallery("a", 50), gallery("x", 60)});
    EXPECT_EQ(enrol({gallery("a", 50, {-7, -8, 5000, 5000}), QVariantMap{{"stuID", "no face"}},
                     gallery("a", 70), gallery("b", 90)},
                    "77"),
              error(0));
    const auto registered = event(1018, 1);
    EXPECT_EQ(registered.requestID, "77");
    EXPECT_EQ(students::ids(registered.info["successList"]), QStringList({"a", "b"}));
    EXPECT_EQ(known(), QStringList({"a", "b"}));
    EXPECT_EQ(stored(), QStringList({"a", "b"}));
    setExternal({gallery("a", 60)}); // stays switched off
    EXPECT_EQ(externals(), QStringList("x"));
    EXPECT_EQ(recognisers.ids->entries.size(), 2U);

    const StudentInfo a = students::get("a");
    EXPECT_EQ(a.faceRect, cv::Rect(0, 0, 1920, 1080));
    EXPECT_EQ(students::get("b").faceRect, cv::Rect(100, 120, 80, 90));
    EXPECT_EQ(a.galleryImage.size(), cv::Size(128, 128));
    EXPECT_NE(a.galleryImage.data, a.bestGallery.data);
    EXPECT_NE(a.registerFeature.data, a.meanFeature.data);

    EXPECT_EQ(controller->bestGallery("6"), error(0));
    EXPECT_EQ(event(1021, 1).requestID, "6");
    const QVariantList best = event(1021, 1).info["bestGalleries"].toList();
    EXPECT_EQ(students::ids(best), QStringList({"a", "b"}));
    EXPECT_EQ(best.value(0).toMap()["score"], QVariant(0.7 * 100));
    const QString picture = best.value(0).toMap()["bestFaceImg"].toString();
    EXPECT_EQ(ai_image::convertBase642Mat(picture).size(), cv::Size(128, 128));
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
    EXPECT_EQ(controller->deleteGallery({{"stuID", "small"}}), error(0)); // unknown to the recogniser
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
}

TEST_F(ControllerTest, PicturesMustBeFacesOfTheRightSizeAndEntriesComplete)
{
    QVariantMap odd = gallery("odd", 50);
    for (const QString &text : {QString("data:image/png;base64,AAAA"), QString(), faceText(50, 127)}) {
        odd["faceImg"] = text;
        EXPECT_EQ(enrol({odd}), error(0));
        EXPECT_TRUE(known().isEmpty());
    }
    QVariantMap reply = setExternal({odd, gallery("good", 90)});
    EXPECT_EQ(reply["rsp_error"], QVariant(0));
    EXPECT_EQ(students::ids(reply["rsp_data"].toMap()["failedStuList"]), QStringList("odd"));

    // An incomplete entry ends the request and keeps the earlier ones.
    EXPECT_EQ(setExternal({}), error(-12));
    EXPECT_EQ(setExternal({gallery("a", 50), QVariantMap{{"faceImg", "x"}}, gallery("c", 90)}), error(-12));
    EXPECT_EQ(externals(), QStringList({"a", "good"}));
    EXPECT_EQ(storedExternals(), QStringList({"good", "a"}));
    recognisers.ids->extractResult = -7;
    reply = setExternal({gallery("d", 50)});
    EXPECT_EQ(students::ids(reply["rsp_data"].toMap()["failedStuList"]), QStringList("d"));
    enrol({gallery("d", 50)});
    EXPECT_EQ(known(), QStringList("d")); // a registration goes on without a feature
    EXPECT_EQ(controller->clearHistoryGalleries(""), error(0));
    EXPECT_TRUE(externals().isEmpty());
    EXPECT_TRUE(storedExternals().isEmpty());
}

TEST_F(ControllerTest, RenamingTakesOverTheNewIdAndDeletingFreesIt)
{
    setExternal({gallery("a", 50), gallery("b", 60)});
    enrol({gallery("a", 50), gallery("b", 90)});
    EXPECT_EQ(controller->updateStudentID({{"oldStuID", "a"}}), error(-12));
    EXPECT_EQ(controller->updateStudentID({{"oldStuID", "a"}, {"newStuID", "b"}}), error(0));
    const auto expectRenamed = [&] {
        EXPECT_EQ(known(), QStringList("b"));
        EXPECT_EQ(stored(), QStringList("b"));
        EXPECT_EQ(students::get("b").faceID, 0);
        EXPECT_EQ(recognisers.ids->entries.size(), 1U);
        EXPECT_EQ(externals(), QStringList("a"));
    };
    expectRenamed();
    // Onto his own id nothing changes.
    EXPECT_EQ(controller->updateStudentID({{"oldStuID", "b"}, {"newStuID", "b"}}), error(0));
    EXPECT_EQ(controller->updateStudentID({{"oldStuID", ""}, {"newStuID", ""}}), error(-12));
    EXPECT_EQ(controller->updateStudentID({{"oldStuID", "nobody"}, {"newStuID", "nobody"}}), error(-1003));
    expectRenamed();
    // A rename that fails has taken the face under the new id out of the recogniser all the same.
    EXPECT_EQ(controller->updateStudentID({{"oldStuID", "nobody"}, {"newStuID", "b"}}), error(-1003));
    EXPECT_TRUE(recognisers.ids->entries.empty());

    EXPECT_EQ(controller->deleteGallery({}), error(-12));
    EXPECT_EQ(controller->deleteGallery({{"stuID", "nobody"}}), error(-1003));
    EXPECT_EQ(controller->deleteGallery({{"stuID", "b"}}), error(0));
    EXPECT_EQ(externals(), QStringList({"a", "b"}));
    EXPECT_TRUE(stored().isEmpty());
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

TEST_F(ControllerTest, FetchingNeedsAKnownStudentAndOneRunAtATime)
{
    EXPECT_EQ(controller->fetchGalleryNew({{"other", 1}}, "1"), error(-1003));
    EXPECT_EQ(controller->fetchGalleryNew({{"stuID", "nobody"}}, "1"), error(-1003));
    enrol({gallery("a", 50, {300, 300, 80, 80})});
    EXPECT_EQ(controller->fetchGalleryNew({}, "1"), error(0));
    // Refused, but its parameters count for the running one.
    EXPECT_EQ(controller->fetchGalleryNew({{"stuID", "a"}}, "3"),
              error(-15, "fetch galleries already start"));
    recognisers.faces->finds({{10, 10, 90, 90}});
    sendFrame();
    const auto found = event(1011, 1);
    EXPECT_EQ(found.requestID, "1");
    EXPECT_EQ(students::ids(found.info["galleries"]), QStringList("a"));
    for (size_t times = 2; times <= 3; ++times) { // it had three looks from the start
        sendFrames(30);
        event(1011, times);
    }
    const auto start = [&] { return controller->fetchGalleryNew({{"stuID", "a"}}, "4") == error(0); };
    EXPECT_TRUE(eventually(start));
    sendFrame();
    EXPECT_TRUE(eventually(start)) << "one student takes one look";
}

} // namespace
