#include "atonce.h"
#include "externalgallery.h"
#include "fixture.h"
#include "gallerystrategy.h"
#include "imageutil.h"
#include "newgallerystrategy.h"

namespace {

class Gallery : public StrategyTest
{
protected:
    Gallery() { ExternalGallery::instance()->clear(); }

    static void addExternal(const QString &stuID, cv::Mat feature)
    {
        ExternalGallery::instance()->addFaceFeature(stuID, feature);
    }
    static cv::Mat featureOf(int brightness)
    {
        return scripted::FaceID::featureOf(cv::Mat(128, 128, CV_8UC3, cv::Scalar::all(brightness)));
    }
    /// The faces of the one event; the picture that goes with them is the frame.
    QVariantList galleries() const
    {
        const auto sent = catcher.events();
        EXPECT_EQ(sent.size(), 1U);
        if (sent.empty())
            return {};
        EXPECT_EQ(sent[0].code, 1011U);
        EXPECT_EQ(sent[0].type, "execute");
        EXPECT_EQ(sent[0].requestID, "42");
        EXPECT_EQ(sent[0].info.keys(), QStringList({"galleries", "image"}));
        EXPECT_EQ(ai_image::convertBase642Mat(sent[0].info["image"].toString()).size(), frame.size());
        return sent[0].info["galleries"].toList();
    }

    EventCatcher &catcher = EventCatcher::fresh();
    NewGalleryStrategy *strategy = listen(new NewGalleryStrategy("42"));
};

TEST_F(Gallery, AClassWithoutFacesIsToldAfterThreeFrames)
{
    strategy->start();
    strategy->handleFrame(frame);
    strategy->handleFrame(frame);
    EXPECT_TRUE(catcher.events().empty());
    strategy->handleFrame(frame);
    EXPECT_TRUE(galleries().isEmpty());
    EXPECT_FALSE(strategy->hasEnded()); // the frame budget's job
}

TEST_F(Gallery, ExternalFacesAreNamedAndEnrolledOnesWin)
{
    addExternal("guest", featureOf(50));
    addExternal("also guest", featureOf(50)); // one face is one person
    addExternal("student's double", featureOf(100));
    addExternal("late guest", featureOf(200));
    addExternal("odd", cv::Mat::ones(1, 3, CV_64F));
    addExternal("zero", cv::Mat::zeros(1, 256, CV_32F));
    students::enrol(*recognisers.ids, "student", 100);
    students::enrol(*recognisers.ids, "gone", 150);
    DataManager::instance()->removeStudent("gone"); // but not from the recogniser
    recognisers.ids->matchScore = 0.43;             // exactly the threshold
    show({300, 300, 90, 90}, 50);
    show({2, 0, 80, 80}, 100);
    show({1200, 400, 120, 120}, 150);
    show({1850, 1010, 68, 69}, 200);
    strategy->start();
    strategy->handleFrame(frame);
    EXPECT_TRUE(strategy->hasEnded()); // faces end a run

    const QVariantList faces = galleries();
    ASSERT_EQ(students::ids(faces), QStringList({"also guest", "student", "", "late guest"}));
    const bool detected[] = {false, true, true, false};
    const cv::Rect places[] = {
        {295, 295, 100, 100}, {0, 0, 90, 90}, {1195, 395, 130, 130}, {1845, 1005, 75, 75}};
    for (int gid = 0; gid < 4; ++gid) {
        const QVariantMap face = faces[gid].toMap();
        EXPECT_EQ(face.keys(), QStringList({"faceImg", "gid", "height", "isDetected", "showImg", "stuID",
                                            "width", "x", "y"}));
        EXPECT_EQ(face["gid"], QVariant(gid));
        EXPECT_EQ(face["isDetected"].type(), QVariant::Bool);
        EXPECT_EQ(face["isDetected"].toBool(), detected[gid]);
        EXPECT_EQ(rectOf(face), places[gid]); // padded, and cut at the edges
        for (const char *crop : {"faceImg", "showImg"})
            EXPECT_EQ(ai_image::convertBase642Mat(face[crop].toString()).size(), cv::Size(128, 128));
    }
}

/// Delivers features of its own.
struct Features : scripted::FaceID
{
    int extractFeature(const cv::Mat &, cv::Mat *feature, bool) override
    {
        *feature = delivered;
        return 0;
    }
    cv::Mat delivered;
};

TEST_F(Gallery, AFeatureThatCannotBeComparedIsNobodys)
{
    const auto ids = std::make_shared<Features>();
    recognisers.ids = ids;
    recognisers.install();
    show({300, 300, 90, 90}, 50);
    const auto ones = [](std::initializer_list<int> shape, int type) {
        cv::Mat mat(std::vector<int>(shape), type);
        mat.reshape(1, 1).setTo(1);
        return mat;
    };
    const cv::Mat halves(1, 8, CV_16F, cv::Scalar(0));
    const std::pair<cv::Mat, cv::Mat> pairs[] = {
        {halves, halves},
        {ones({1, 8, 2}, CV_32F), ones({1, 8, 3}, CV_32F)},
        {ones({1, 8}, CV_32F), ones({1, 8}, CV_64F)},
        {ones({1, 8}, CV_8U), ones({1, 8}, CV_8U)},
        {ones({1, 8}, CV_32F), cv::Mat()},
    };
    for (const auto &[external, delivered] : pairs) {
        addExternal("guest", external);
        ids->delivered = delivered;
        strategy->handleFrame(frame);
        EXPECT_EQ(students::ids(galleries()), QStringList(""));
        EventCatcher::fresh();
    }
    addExternal("guest", ones({1, 4, 2}, CV_32F));
    ids->delivered = ones({1, 4, 2}, CV_32F);
    strategy->handleFrame(frame);
    EXPECT_EQ(students::ids(galleries()), QStringList("guest"));
}

TEST_F(Gallery, AnIdWithAPercentSignIsLoggedAsItIs)
{
    PersonGallery person;
    person.stuID = "%1 100%4";
    person.faceRect = {1, 2, 3, 4};
    EXPECT_EQ(person.toString(), "gid: 0 stuID: %1 100%4 face x: 1 y: 2 width: 3 height: 4 detected: 0");
}

TEST_F(Gallery, OneStudentIsLookedForAroundHisPlace)
{
    cv::Size region;
    recognisers.faces->script = [&](const cv::Mat &image, std::vector<cv::Rect> &faces,
                                    std::vector<std::vector<cv::Point>> &landmarks) {
        region = image.size();
        faces = {{50, 40, 90, 90}};
        landmarks = {{{80, 75}, {110, 75}, {95, 90}, {80, 110}, {110, 110}}};
    };
    QVariantMap place{{"x", 1000}, {"y", 20}, {"width", 100}, {"height", 80}, {"stuID", "s"}};
    for (const char *key : {"x", "y", "width", "height"}) {
        QVariantMap nowhere = place;
        nowhere[key] = 0;
        strategy->setParameters(nowhere);
        strategy->handleFrame(frame);
        EXPECT_EQ(region, frame.size()) << key; // at the edge, too, there is only the whole class
    }
    EventCatcher::fresh();
    frame.colRange(940 + 140, 1920).setTo(cv::Scalar::all(250)); // 45 to the right of the eyes' middle
    strategy->setParameters(place);
    strategy->handleFrame(frame);
    EXPECT_EQ(region, cv::Size(220, 200)); // 60 on each side, cut at the top
    const QVariantMap only = galleries().value(0).toMap();
    EXPECT_EQ(only["stuID"], "s");
    EXPECT_EQ(only["gid"], QVariant(0));
    EXPECT_EQ(only["isDetected"], QVariant(0));
    EXPECT_EQ(only["isDetected"].type(), QVariant::Int);
    EXPECT_EQ(rectOf(only), cv::Rect(940 + 45, 0 + 35, 100, 100));
    // The eyes come to lie 40 and 25 apart.
    for (const auto &[crop, column] : {std::pair("faceImg", 124), std::pair("showImg", 102)}) {
        const cv::Mat head = ai_image::convertBase642Mat(only[crop].toString());
        EXPECT_GT(head.at<cv::Vec3b>(64, column)[0], 128) << crop;
        EXPECT_LT(head.at<cv::Vec3b>(64, column - 2)[0], 128) << crop;
    }

    EventCatcher::fresh();
    place["width"] = place["height"] = 1;
    strategy->setParameters(place);
    strategy->handleFrame(frame);
    EXPECT_EQ(region, cv::Size(121, 121));
}

TEST_F(Gallery, ParametersMayChangeWhileFramesAreLookedAt)
{
    frame = frame(cv::Rect(0, 0, 64, 48));
    const QVariantMap places[] = {{{"x", 8}, {"y", 8}, {"width", 9}, {"height", 9}, {"stuID", "s"}}, {}};
    atOnce(200, {[&](int round) { strategy->setParameters(places[round % 2]); },
                 [&](int) { strategy->handleFrame(frame); }});
}

TEST_F(Gallery, ThePlacesOfFacesKeepThoseWithTheLargestOffset)
{
    // All landmarks lie so far to the right of where they belong, those of a second face one pixel farther.
    const auto showAt = [&](const std::vector<cv::Point> &corners, int shift) {
        recognisers.faces->script = [=](const cv::Mat &, std::vector<cv::Rect> &faces,
                                        std::vector<std::vector<cv::Point>> &landmarks) {
            for (const cv::Point &corner : corners) {
                const cv::Point origin = corner - cv::Point(5 - shift - int(faces.size()), 5);
                faces.emplace_back(corner, cv::Size(90, 70));
                landmarks.push_back({origin + cv::Point(43, 55), origin + cv::Point(93, 54),
                                     origin + cv::Point(69, 81), origin + cv::Point(48, 98),
                                     origin + cv::Point(88, 97)});
            }
        };
    };
    auto *const places = listen(new GalleryStrategy);
    const auto &items = GalleryStrategy::items();
    const auto look = [&](int brightness) {
        frame.setTo(cv::Scalar::all(brightness));
        frame(cv::Rect(900, 0, 300, 1080)).setTo(cv::Scalar::all(2 * brightness));
        places->handleFrame(frame);
    };
    const auto expect = [](const GalleryItem &item, const cv::Rect &face, const cv::Point &centre, int offset,
                           int brightness) {
        EXPECT_EQ(item.faceRect, face);
        EXPECT_EQ(item.centre, centre);
        EXPECT_EQ(item.offset, offset);
        EXPECT_EQ(static_cast<int>(cv::mean(item.faceImg)[0]), brightness);
        EXPECT_EQ(static_cast<int>(cv::mean(item.showImg)[0]), brightness);
    };

    showAt({{300, 300}, {1000, 300}}, 3);
    look(50);
    ASSERT_EQ(items.size(), 2U);
    EXPECT_EQ(items.back().index, 1);
    expect(items.back(), {995, 295, 100, 80}, {1045, 335}, 5 * 4 * 4, 100);
    expect(items.front(), {295, 295, 100, 80}, {345, 335}, 5 * 3 * 3, 50);
    showAt({{1000, 300}, {320, 300}}, 2); // no larger
    look(60);
    expect(items.front(), {295, 295, 100, 80}, {365, 335}, 5 * 3 * 3, 50);
    showAt({{1000, 300}, {447, 300}}, 3); // 127 farther
    look(70);
    EXPECT_EQ(items.size(), 2U);
    expect(items.front(), {442, 295, 100, 80}, {492, 335}, 5 * 4 * 4, 70);
    showAt({{575, 300}}, 5); // 128 farther is another place
    look(80);
    EXPECT_EQ(items.size(), 3U);
    expect(items.front(), {442, 295, 100, 80}, {492, 335}, 5 * 4 * 4, 70);
    listen(new GalleryStrategy);
    EXPECT_TRUE(items.empty());
}

} // namespace
