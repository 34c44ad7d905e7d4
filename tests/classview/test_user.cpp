#include "enroldialog.h"
#include "mainwindow.h"
#include "person.h"
#include "program.h"
#include "serviceprocess.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QToolBar>
#include <QToolButton>

namespace {

/// Somebody with a mouse and a keyboard before the viewer; the service and the demo class are real.
class UserTest : public ::testing::Test
{
protected:
    UserTest() { qputenv("TMPDIR", QFile::encodeName(service.home())); }
    void pressTool(const QString &text) { person::press<QToolButton>(window->findChild<QToolBar *>(), text); }
    void pressGuide(const QString &text)
    {
        person::press<QPushButton>(window->findChild<GuideBar *>(), text);
    }
    /// Types names into the dialog, one for each face, and an Enter after each.
    void nameFaces(const QStringList &names)
    {
        person::whenOpen<EnrolDialog>([this, names](EnrolDialog *dialog) {
            for (const auto &name : names) {
                auto *const line = dialog->findChild<QLineEdit *>();
                EXPECT_TRUE(eventually([&] { return line->isEnabled() && line->text().isEmpty(); }));
                const int before = dialog->enrolled();
                QTest::keyClicks(line, name);
                QTest::keyClick(line, Qt::Key_Return);
                EXPECT_TRUE(eventually([&] { return dialog->enrolled() > before; })) << name.toStdString();
            }
            if (dialog->isVisible())
                dialog->reject();
        });
    }

    ServiceProcess service;
    std::unique_ptr<MainWindow> window;
};

TEST_F(UserTest, EnrolsTheClassWatchesHandsAndAttentionAndFindsTheRecording)
{
    Program camera(CAMERAFEED, {"--demo"});
    ASSERT_TRUE(service.start());
    window = std::make_unique<MainWindow>(service.socketPath(), "Camera");
    window->show();
    auto &lesson = window->lesson();
    ASSERT_TRUE(eventually([&] { return lesson.link().state() == 0 && window->camera().frames() > 0; }));
    pressGuide("Load");
    while (lesson.model().faces().size() < 4) {
        pressGuide("Find faces");
        ASSERT_TRUE(
            eventually([&] { return lesson.model().faces().size() >= 4 || !lesson.link().isBusy(); }));
        eventually(
            [&, waited = 0]() mutable { return lesson.model().faces().size() >= 4 || ++waited > 400; });
    }

    nameFaces({"Anna"});
    const QRectF face(lesson.model().faces()[0].place);
    QTest::mouseClick(&window->overlay(), Qt::LeftButton, {},
                      window->display().geometryEngine().toView(face.center()).toPoint());
    EXPECT_EQ(lesson.model().faces()[0].student, "Anna");
    EXPECT_TRUE(lesson.model().knows("Anna"));
    nameFaces({"Ben", "Cleo"});
    pressTool("Name faces…");
    ASSERT_TRUE(eventually([&] { return lesson.model().students().size() == 3 && !lesson.link().isBusy(); }));

    pressGuide("Hands");
    ASSERT_TRUE(eventually([&] { return lesson.isRunning(Analysis::Hands) && !lesson.link().isBusy(); }));
    pressTool("Attention");
    ASSERT_TRUE(eventually([&] {
        bool isAttention = false, isHand = false;
        for (const LessonMoment &moment : lesson.model().lesson()) {
            isAttention |= moment.attention.has_value();
            isHand |= moment.tellsHands;
        }
        return isAttention && isHand;
    }));

    pressGuide("Record");
    ASSERT_TRUE(eventually([&] { return !lesson.model().recordingFile().isEmpty(); }));
    QString told;
    person::whenOpen<QMessageBox>([&](QMessageBox *box) {
        told = box->text();
        box->accept();
    });
    pressGuide("Show the recording");
    const QFileInfo recording(told.section('\n', -1));
    EXPECT_TRUE(recording.exists()) << told.toStdString();
    pressTool("Record");
    ASSERT_TRUE(eventually([&] { return !lesson.isRecording(); }));
    const auto *const guide = window->findChild<GuideBar *>()->findChild<QLabel *>();
    EXPECT_TRUE(eventually([&] { return guide->text().contains(recording.filePath()); }))
        << "also after its end";
    QFile::remove(recording.filePath());

    const QJsonArray log = QJsonDocument::fromJson(window->findChild<LogPanel *>()->json()).array();
    EXPECT_GT(log.size(), 10);
    EXPECT_FALSE(QJsonDocument(log).toJson().contains("base64")) << "no pictures in the log";

    person::answer(QMessageBox::No);
    EXPECT_FALSE(window->close()) << "it asks while analyses run";
    service.crash();
    ASSERT_TRUE(eventually([&] { return !lesson.link().isConnected(); }));
    EXPECT_FALSE(lesson.isAnythingRunning());
    ASSERT_TRUE(service.start());
    ASSERT_TRUE(eventually([&] { return lesson.link().state() == 0; })) << "it connects again by itself";
    EXPECT_TRUE(window->close());
}

} // namespace
