#include "enroldialog.h"
#include "fakeservice.h"
#include "importdialog.h"
#include "mainwindow.h"
#include "markpainter.h"
#include "messages.h"
#include "person.h"
#include "picture.h"
#include "theme.h"

#include <gmock/gmock.h>

#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QListWidget>
#include <QProgressBar>
#include <QSemaphore>
#include <QTemporaryDir>

#include <atomic>

namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// The viewer before a service that does what it is asked to, and tells what that was.
class DialogsTest : public ::testing::Test
{
protected:
    DialogsTest()
    {
        QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
        service.setAnswer([this](const QVariantMap &request) { return answerTo(request); });
        window = std::make_unique<MainWindow>("AI", "NoCamera");
        window->show();
        list = window->findChild<QListWidget *>();
        EXPECT_TRUE(eventually([this] { return list->count() == 3 && !lesson().link().isBusy(); }));
    }

    LessonControl &lesson() { return window->lesson(); }

    QVariantList answerTo(const QVariantMap &request)
    {
        const auto data = request["req_data"].toMap();
        const QString id = request["req_id"].toString();
        held.acquire();
        held.release();
        if (request["req_code"].toInt() == AiClient::Info)
            return {FakeService::reply(0, {}, QVariantMap{{"status", state.load()}, {"version", "1"}})};
        const auto command = data["command_code"].toUInt();
        if (command == code(ai::Command::RegisterStudents)) {
            QVariantList enrolled;
            for (const auto &entry : data["data"].toMap()["galleries"].toList())
                if (!QStringList({"Ada", "Blurred"}).contains(entry.toMap()["stuID"].toString()))
                    enrolled.append(entry);
            return {FakeService::event(code(ai::Event::Registered), {{"successList", enrolled}}, id),
                    FakeService::reply()};
        }
        if (command == code(ai::Command::BestPictures))
            return {FakeService::event(code(ai::Event::BestPictures), {{"bestGalleries", students}}, id),
                    FakeService::reply()};
        return {FakeService::reply()};
    }
    /// All requests of a kind, or of a command.
    QList<QVariantMap> requests(AiClient::Kind kind, ai::Command command = {}) const
    {
        auto all = service.requests();
        const auto isOther = [&](const QVariantMap &request) {
            return request["req_code"].toInt() != kind ||
                   request["req_data"].toMap()["command_code"].toUInt() != code(command);
        };
        all.erase(std::remove_if(all.begin(), all.end(), isOther), all.end());
        return all;
    }
    /// The data of all requests with this code.
    QVariantList sent(ai::Command command) const
    {
        QVariantList data;
        for (const auto &request : requests(AiClient::Execute, command))
            data.append(request["req_data"].toMap()["data"]);
        return data;
    }
    /// A key on the window, which no window manager makes the active one here.
    void strike(Qt::Key key, Qt::KeyboardModifiers modifiers = {})
    {
        QApplication::setActiveWindow(window.get());
        QTest::keyClick(list, key, modifiers);
    }
    void select(const QString &student)
    {
        const auto found = list->findItems(student, Qt::MatchStartsWith);
        ASSERT_EQ(found.size(), 1) << student.toStdString();
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualItemRect(found[0]).center());
        ASSERT_EQ(window->findChild<StudentPanel *>()->selectedStudents(), QStringList{student});
    }
    /// Does something that asks before: each way of saying no leaves it, yes does it.
    void expectAsked(const std::function<void()> &deed, const std::function<int()> &times)
    {
        const int before = times();
        const std::function<void(QMessageBox *)> refusals[] = {
            [](auto *box) { QTest::mouseClick(box->button(QMessageBox::No), Qt::LeftButton); },
            [](auto *box) { QTest::keyClick(box, Qt::Key_Escape); },
            [](auto *box) { QTest::keyClick(box, Qt::Key_Return); }};
        for (const auto &refuse : refusals) {
            const auto isRefused = person::whenOpen<QMessageBox>([&](QMessageBox *box) {
                EXPECT_THAT(box->text().toStdString(), HasSubstr("?"));
                refuse(box);
            });
            deed();
            person::await(isRefused);
        }
        // Requests go out one at a time, so one that comes after them tells that none of them is on its way.
        expectNothingLeft();
        ASSERT_EQ(times(), before) << "no was taken for yes";
        const auto isAnswered = person::answer(QMessageBox::Yes);
        deed();
        person::await(isAnswered);
        EXPECT_TRUE(eventually([&] { return times() == before + 1; }));
        expectNothingLeft();
        EXPECT_EQ(times(), before + 1) << "and only once";
    }
    void expectNothingLeft()
    {
        const int before = sent(ai::Command::BestPictures).size();
        strike(Qt::Key_F5);
        EXPECT_TRUE(eventually(
            [&] { return sent(ai::Command::BestPictures).size() > before && !lesson().link().isBusy(); }));
    }
    /// Types a name into the dialog that a deed opens.
    void typeName(const QString &name, Qt::Key end)
    {
        const auto done = person::whenOpen<QInputDialog>([=](QInputDialog *dialog) {
            auto *const line = dialog->findChild<QLineEdit *>();
            line->selectAll();
            QTest::keyClicks(line, name);
            QTest::keyClick(line, end);
        });
        strike(Qt::Key_F2);
        person::await(done);
    }
    /// Chooses a file or a folder. A file is typed, and Qt's dialog is not pressed: while its list fills in
    /// the background, it takes what was selected away.
    static void choose(const QString &path)
    {
        person::whenOpen<QFileDialog>([path](QFileDialog *dialog) {
            if (QFileInfo(path).isDir())
                dialog->setDirectory(path);
            else
                dialog->findChild<QLineEdit *>()->setText(path);
            static_cast<QDialog *>(dialog)->done(QDialog::Accepted);
        });
    }
    QString save(const QString &name, const QByteArray &content) const
    {
        QString error;
        EXPECT_TRUE(picture::save(folder.filePath(name), content, &error)) << error.toStdString();
        return folder.filePath(name);
    }
    /// A picture of the size of a portrait, which is taken as it is.
    static QByteArray portrait(uchar grey)
    {
        return picture::jpegOf(picture::toDataText(cv::Mat(128, 128, CV_8UC3, cv::Scalar(grey, grey, 200))));
    }

    QVariantList students{QVariantMap{{"stuID", "Ada"}, {"score", 71.0}}, QVariantMap{{"stuID", "Ben"}},
                          QVariantMap{{"stuID", "Cleo"}}};
    std::atomic<int> state{2};
    QSemaphore held{1};
    QTemporaryDir folder;
    FakeService service;
    std::unique_ptr<MainWindow> window;
    QListWidget *list;
};

TEST_F(DialogsTest, AStudentIsRenamedOnceANewNameStands)
{
    select("Ben");
    typeName("Bea", Qt::Key_Escape);
    typeName("  ", Qt::Key_Return);
    typeName("Ben", Qt::Key_Return);
    QString told;
    person::whenOpen<QMessageBox>([&](QMessageBox *box) {
        told = box->text();
        QTest::keyClick(box, Qt::Key_Return);
    });
    typeName("Cleo", Qt::Key_Return);
    EXPECT_THAT(told.toStdString(), HasSubstr("Cleo already"));
    expectNothingLeft();
    EXPECT_THAT(sent(ai::Command::RenameStudent), IsEmpty());

    typeName(" Bea ", Qt::Key_Return);
    ASSERT_TRUE(eventually([&] { return !sent(ai::Command::RenameStudent).isEmpty(); }));
    EXPECT_EQ(sent(ai::Command::RenameStudent),
              (QVariantList{QVariantMap{{"oldStuID", "Ben"}, {"newStuID", "Bea"}}}));
    EXPECT_TRUE(eventually([&] { return lesson().model().knows("Bea") && !lesson().model().knows("Ben"); }));
}

TEST_F(DialogsTest, WhatCannotBeTakenBackIsAskedForAndSentOnceAfterAYes)
{
    const auto count = [this](ai::Command command) {
        return [this, command] { return int(sent(command).size()); };
    };
    select("Cleo");
    expectAsked([&] { strike(Qt::Key_Delete); }, count(ai::Command::DeleteStudent));
    EXPECT_EQ(sent(ai::Command::DeleteStudent), (QVariantList{QVariantMap{{"stuID", "Cleo"}}}));

    select("Ada");
    const QByteArray face = portrait(80);
    const QString file = save("new.jpg", face);
    expectAsked(
        [&] {
            choose(file);
            person::press<QPushButton>(window.get(), "New face…");
        },
        count(ai::Command::ReplaceFace));
    const auto replaced = sent(ai::Command::ReplaceFace).value(0).toMap();
    EXPECT_EQ(replaced["oldStuID"], "Ada");
    EXPECT_EQ(picture::jpegOf(replaced["faceImageBase64"].toString()), face);

    expectAsked([&] { strike(Qt::Key_Backspace, Qt::ControlModifier | Qt::ShiftModifier); },
                count(ai::Command::Reset));
    const auto close = [this] {
        for (auto *const action : window->findChildren<QAction *>())
            if (action->text() == "Close the service…")
                action->trigger();
    };
    expectAsked(close, [this] { return requests(AiClient::Close).size(); });
}

TEST_F(DialogsTest, AFolderOfPortraitsIsImportedAndTheRefusedOnesAreListedWithTheReason)
{
    save("Ada.jpg", portrait(10));
    save("Blurred.jpg", portrait(60));
    QString error;
    picture::save(folder.filePath("Cat.png"), cv::Mat(300, 300, CV_8UC3, cv::Scalar::all(128)), &error);
    save("Emil.jpg", portrait(90));
    save("Notes.jpg", "no picture");
    save("list.txt", "not even a name of a picture");

    choose(folder.path());
    const char *const results[] = {"enrolled already", "did not take this face", "No face", "enrolled",
                                   "not a picture"};
    held.acquire();
    const auto done = person::whenOpen<ImportDialog>([&](ImportDialog *dialog) {
        auto *const progress = dialog->findChild<QProgressBar *>();
        EXPECT_EQ(progress->maximum(), 5);
        EXPECT_EQ(progress->value(), 0) << "it stands at what is done";
        held.release();
        EXPECT_NE(person::findButton<QPushButton>(dialog, "Close"), nullptr);
        EXPECT_EQ(progress->value(), 5);
        for (int file = 0; file < 5; ++file)
            EXPECT_THAT(dialog->result(file).toStdString(), HasSubstr(results[file]));
        EXPECT_EQ(dialog->enrolled(), 1);
        QTest::keyClick(dialog, Qt::Key_Escape);
    });
    person::press<QPushButton>(window.get(), "Import…");
    person::await(done);
}

TEST_F(DialogsTest, AFaceIsNeitherSkippedNorAskedForTwiceWhileItIsEnrolled)
{
    QVariantList faces;
    for (int i = 0; i < 3; ++i) {
        QVariantMap face{{"stuID", ""}, {"x", 100 * i}, {"y", 10}, {"width", 50}, {"height", 50}};
        face["faceImg"] = picture::toDataText(portrait(uchar(40 * i)));
        faces.append(face);
    }
    service.send(FakeService::event(code(ai::Event::Faces), {{"galleries", faces}}, "x"));
    ASSERT_TRUE(eventually([&] { return lesson().model().faces().size() == 3; }));
    held.acquire();
    const auto done = person::whenOpen<EnrolDialog>([&](EnrolDialog *dialog) {
        auto *const line = dialog->findChild<QLineEdit *>();
        auto *const skip = person::findButton<QPushButton>(dialog, "Skip");
        QTest::keyClicks(line, "Dora");
        QTest::keyClick(line, Qt::Key_Return);
        QTest::keyClick(line, Qt::Key_Return);
        QTest::mouseClick(skip, Qt::LeftButton);
        held.release();
        EXPECT_TRUE(eventually([&] { return dialog->enrolled() == 1 && line->isEnabled(); }));
        QTest::mouseClick(skip, Qt::LeftButton);
        QTest::keyClicks(line, "Emil");
        QTest::keyClick(line, Qt::Key_Return);
    });
    strike(Qt::Key_E, Qt::ControlModifier);
    person::await(done);
    QStringList enrolled;
    for (const auto &data : sent(ai::Command::RegisterStudents)) {
        const auto face = data.toMap()["galleries"].toList()[0].toMap();
        enrolled.append(face["stuID"].toString() + " at " + face["x"].toString());
    }
    EXPECT_EQ(enrolled, (QStringList{"Dora at 0", "Emil at 200"})) << "the second one was skipped";
}

TEST_F(DialogsTest, AfterAStopALateEventTellsNothing)
{
    const auto tellHands = [this](const QString &id) {
        const QVariantMap who{{"stuID", "Ada"}, {"x", 1}, {"y", 2}, {"width", 3}, {"height", 4}};
        service.send(FakeService::event(code(ai::Event::Hands), {{"handupStudents", QVariantList{who}}}, id));
        service.send(FakeService::event(code(ai::Event::Recording), {{"videoLocalPath", "/of " + id}}, "r"));
        EXPECT_TRUE(eventually([&] { return lesson().model().recordingFile() == "/of " + id; }));
    };
    /// The identifier of the latest start.
    const auto switchHands = [this] {
        const bool before = lesson().isRunning(Analysis::Hands);
        strike(Qt::Key_H, Qt::ControlModifier);
        EXPECT_TRUE(eventually(
            [&] { return lesson().isRunning(Analysis::Hands) != before && !lesson().link().isBusy(); }));
        return requests(AiClient::Execute, ai::Command::StartHands).last()["req_id"].toString();
    };
    const QString first = switchHands();
    tellHands(first);
    EXPECT_EQ(lesson().model().lesson().size(), 1);
    switchHands();
    service.send(FakeService::event(code(ai::Event::Recording), {{"videoLocalPath", "/another"}}, "r"));
    tellHands(first);
    EXPECT_FALSE(lesson().isRunning(Analysis::Hands));
    EXPECT_EQ(lesson().model().lesson().size(), 1);
    tellHands(switchHands());
    EXPECT_EQ(lesson().model().lesson().size(), 2);
}

TEST(Label, AHandThatIsOldFadesBesideAFreshFaceAndTellsItsAge)
{
    GeometryEngine geometry;
    geometry.setFrameSize({400, 200});
    geometry.setView({400, 200}, 1);
    const Mark face{MarkKind::Face, "Ada", {100, 80, 80, 80}, 0, 20000, {}};
    const Mark hand{MarkKind::Hand, "Ada", {90, 60, 100, 120}, 0, 15000, {}};
    const auto label = labelsOf({face, hand}).value(0);
    EXPECT_EQ(label.told(), 15000);
    EXPECT_EQ(labelsOf({face}).value(0).told(), std::nullopt);
    for (const double freshness : {1.0, 0.0}) {
        QImage canvas(400, 200, QImage::Format_RGB32);
        canvas.fill(Qt::black);
        QPainter painter(&canvas);
        MarkPainter pen(painter, geometry, canvas.rect(), 20000,
                        [&](const Mark &mark) { return mark.kind == MarkKind::Hand ? freshness : 1.0; });
        const QRect place = pen.paintLabel(label);
        EXPECT_EQ(canvas.pixelColor(place.right() - 3, place.center().y()) == theme::mark(MarkKind::Hand),
                  freshness == 1.0);
    }
}

TEST_F(DialogsTest, AServiceThatDoesNotAnswerIsToldAndOneThatBeginsAnewHasNoStudentsAndRecordsNothing)
{
    const auto isShown = [this](const char *text) {
        const auto labels = window->findChildren<QLabel *>();
        return std::any_of(labels.begin(), labels.end(), [text](const QLabel *label) {
            return label->isVisible() && label->text().contains(text);
        });
    };
    EXPECT_TRUE(eventually([&] { return isShown("Service: ready"); }));
    held.acquire();
    EXPECT_TRUE(
        eventually([&] { return isShown("Service: does not answer") && isShown("end it and start"); }));
    EXPECT_TRUE(lesson().link().isConnected());
    held.release();
    EXPECT_TRUE(eventually([&] { return isShown("Service: ready"); }));

    service.send(FakeService::event(code(ai::Event::Recording), {{"videoLocalPath", "/films/a.mp4"}}, "r"));
    ASSERT_TRUE(eventually([this] { return lesson().isRecording(); }));
    state = 0;
    service.dropClients();
    ASSERT_TRUE(eventually([this] { return lesson().link().state() == 0; }));
    EXPECT_EQ(list->count(), 0);
    EXPECT_FALSE(lesson().isRecording());
    EXPECT_EQ(lesson().model().lastRecording(), "/films/a.mp4") << "where it is can still be looked up";
}

} // namespace
