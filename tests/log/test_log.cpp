#include "atonce.h"
#include "eventually.h"
#include "mylog.h"

#include <gmock/gmock.h>
#include <spdlog/spdlog.h>

#include <QDateTime>
#include <QElapsedTimer>
#include <QRegularExpression>
#include <QTemporaryFile>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {

class LogTest : public ::testing::Test
{
protected:
    LogTest() { m_folder.removeRecursively(); }

    ~LogTest() override
    {
        qInstallMessageHandler(nullptr);
        MyLog::setConsole(false);
        spdlog::drop_all();
    }

    void start(int level = 0, const QStringList &categories = {})
    {
        MyLog::init("AI", m_folder, categories, level, 10000);
    }

    static void log(QtMsgType type, const QString &message, const char *function = "",
                    const char *category = "default")
    {
        MyLog::messageHandler(type, QMessageLogContext("file.cpp", 7, function, category), message);
    }

    /// What stands in the one file of this base name, without time and thread. Line ends are kept.
    QStringList lines(const QString &name = "AI")
    {
        MyLog::flush();
        return linesOnDisk(name);
    }
    QStringList linesOnDisk(const QString &name = "AI")
    {
        const QStringList files =
            m_folder.entryList().filter(QRegularExpression("^" + name + "_[\\d-]{10}_[\\d-]{8}\\.log$"));
        EXPECT_EQ(files.size(), 1) << qPrintable(name);
        QFile file(m_folder.filePath(files.value(0)));
        EXPECT_TRUE(file.open(QFile::ReadOnly));
        const QRegularExpression start("^\\[\\d\\d:\\d\\d:\\d\\d:\\d{3}\\] \\[\\d+\\] ",
                                       QRegularExpression::MultilineOption);
        return QString::fromUtf8(file.readAll()).remove(start).split('\n');
    }

    QDir m_folder{QDir::temp().filePath("Orelia/logs")};
};

TEST_F(LogTest, EachLevelHasItsLineAndFunctionNamesAreShort)
{
    start();
    log(QtDebugMsg, "a", "void A::debug(int)");
    log(QtWarningMsg, "b");
    log(QtCriticalMsg, "c {} {0} {x} %s", nullptr);
    log(QtWarningMsg, "\u0080.");
    log(QtMsgType(7), "nothing");
    for (const char *signature :
         {"int B::info(const QString &) const", "main", "void A::f(B (*)(int))", " f()", "(anonymous)"})
        log(QtInfoMsg, "d", signature);
    EXPECT_EQ(lines(), (QStringList{"[debug] a\t\t\t==>>( A::debug:7,)\r", "[warning] b    ==>>(:7)\r",
                                    "[critical] c {} {0} {x} %s    ==>>(:7)\r",
                                    "[warning] \u0080.    ==>>(:7)\r", "[info] d    ==>>( B::info:7)\r",
                                    "[info] d    ==>>(main:7)\r", "[info] d    ==>>( (*):7)\r",
                                    "[info] d    ==>>( f:7)\r", "[info] d    ==>>((anonymous):7)\r", ""}));
}

TEST_F(LogTest, FileAndLineTellTheTimeOfTheClock)
{
    const QDateTime before = QDateTime::currentDateTime();
    start();
    const QDateTime beforeLine = QDateTime::currentDateTime();
    log(QtInfoMsg, "a");
    const QDateTime after = QDateTime::currentDateTime();
    MyLog::flush();
    const QString name = m_folder.entryList(QDir::Files).value(0);
    const auto opened = QDateTime::fromString(name, "'AI_'yyyy-MM-dd_hh-mm-ss'.log'");
    EXPECT_GT(opened.addSecs(1), before) << name.toStdString();
    EXPECT_LE(opened, after);
    QFile file(m_folder.filePath(name));
    ASSERT_TRUE(file.open(QFile::ReadOnly));
    const QByteArray head = file.read(13);
    const QDateTime written(after.date(), QTime::fromString(head, "'['hh:mm:ss:zzz"));
    EXPECT_GE(written, beforeLine) << head.constData();
    EXPECT_LE(written, after) << head.constData();
}

TEST_F(LogTest, OnlyInfoIsCutAndBytesAreCounted)
{
    start();
    for (QtMsgType type : {QtDebugMsg, QtInfoMsg, QtWarningMsg, QtCriticalMsg})
        log(type, QString(10001, 'x'));
    log(QtInfoMsg, QString(10000, 'x'));
    log(QtInfoMsg, QString(5001, QChar(0xE4)));
    QList<int> counts;
    for (const QString &line : lines())
        counts.append(line.count('x') + line.count(QChar(0xE4)));
    EXPECT_EQ(counts, (QList<int>{10001, 10000, 10001, 10001, 10000, 5000, 0}));
}

/// The rest of the line stays whole, however long it is, and the same picture is known again.
TEST_F(LogTest, PicturesAreTheirKindLengthAndHash)
{
    start();
    const QString face = "data:image/jpg;base64,/azAZ09/" + QString(19996, 'A') + "+/Z==";
    log(QtDebugMsg, "faceImg: " + face);
    log(QtWarningMsg, QString("{\"a\": \"%1\", \"b\": [\"data:image/%2\"], \"c\": 1}")
                          .arg(face, "twenty1azAZ09letters5,AB CD\r\nEF"));
    log(QtInfoMsg, face + ": " + QString(9000, 'x'));
    log(QtInfoMsg, "data:image/png,AB");
    const QStringList written = lines();
    ASSERT_EQ(written.size(), 5) << "also line ends inside of a picture are taken out";
    const QRegularExpression picture("<picture jpg, 20031 characters, ([0-9a-f]{8})>");
    const QString hash = picture.match(written[0]).captured(1);
    EXPECT_EQ(written[0], "[debug] faceImg: <picture jpg, 20031 characters, " + hash + ">\t\t\t==>>(:7,)\r");
    EXPECT_EQ(picture.match(written[1]).captured(1), hash);
    EXPECT_THAT(written[1].toStdString(),
                testing::HasSubstr("\"b\": [\"<picture twenty1azAZ09letters, 42 characters, "));
    EXPECT_THAT(written[1].toStdString(), testing::HasSubstr(">\"], \"c\": 1}    ==>>"));
    EXPECT_EQ(written[2].count('x'), 9000) << "the cut counts what is written";
    EXPECT_THAT(written[3].toStdString(), testing::StartsWith("[info] <picture png, 17 characters, "));
    EXPECT_FALSE(written.join("").contains("AAAA"));
}

TEST_F(LogTest, ThresholdHoldsForEachLevel)
{
    for (const int level : {0, 1, 3, 4}) {
        start(level);
        const auto fatal = [] {
            std::signal(SIGABRT, [](int) { // in place of the crash dump's handler
                MyLog::flush();
                _exit(3);
            });
            log(QtFatalMsg, "text");
        };
        EXPECT_EXIT(fatal(), testing::ExitedWithCode(3), "");
        for (QtMsgType type : {QtDebugMsg, QtInfoMsg, QtWarningMsg, QtCriticalMsg})
            log(type, "text");
        EXPECT_EQ(lines().size(), 5 - level + 1);
        spdlog::drop_all();
        m_folder.removeRecursively();
    }
}

TEST_F(LogTest, ATerminalGetsTheLinesOfTheFile)
{
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
    ASSERT_EQ(grantpt(terminal) | unlockpt(terminal), 0);
    const int inside = open(ptsname(terminal), O_RDWR | O_NOCTTY);
    const int usual = dup(STDOUT_FILENO);
    std::fflush(stdout);
    dup2(inside, STDOUT_FILENO);
    start(2);
    MyLog::setConsole(true);
    for (QtMsgType type : {QtDebugMsg, QtInfoMsg, QtWarningMsg, QtCriticalMsg})
        log(type, QString("text%1").arg(type));
    EXPECT_EQ(lines(), (QStringList{"[warning] text1    ==>>(:7)\r", "[critical] text2    ==>>(:7)\r", ""}));
    dup2(usual, STDOUT_FILENO);
    std::string text;
    EXPECT_TRUE(eventually([&] { // a terminal may hand them over one by one
        char part[1000];
        const ssize_t count = read(terminal, part, sizeof part);
        text.append(part, std::size_t(std::max<ssize_t>(count, 0)));
        return std::count(text.begin(), text.end(), '\n') >= 2;
    }));
    EXPECT_THAT(text, testing::MatchesRegex(
                          "(\\[[0-9:]+\\] \\[[0-9]+\\] \\[[a-z]+\\] text[12]    ==>>\\(:7\\)\r+\n){2}"));
    for (const int file : {terminal, inside, usual})
        close(file);
}

/// The console is a file here: lines that come fast gather.
TEST_F(LogTest, ConsoleLinesArriveByThemselvesAndAtTheEnd)
{
    QTemporaryFile output;
    ASSERT_TRUE(output.open());
    const auto shown = [&] {
        QFile file(output.fileName());
        return file.open(QFile::ReadOnly) ? file.readAll() : QByteArray();
    };
    const auto logBurst = [](char mark) {
        for (int i = 0; i < 1000; ++i)
            log(QtInfoMsg, QString("%1%2.").arg(mark).arg(i));
    };
    const int usual = dup(STDOUT_FILENO);
    std::fflush(stdout);
    dup2(output.handle(), STDOUT_FILENO);
    start();
    MyLog::setConsole(true);
    logBurst('a');
    EXPECT_TRUE(eventually([&] { return shown().count('\n') >= 1000; }));
    for (int i = 0, at = 0; i < 1000; ++i) {
        at = shown().indexOf(QString("a%1.").arg(i).toUtf8(), at);
        ASSERT_GE(at, 0) << i;
    }
    MyLog::flush();
    EXPECT_EQ(shown().count("    ==>>(:7)\r\n"), 1000);
    EXPECT_EXIT((logBurst('b'), qFatal("the end")), testing::KilledBySignal(SIGABRT), "");
    EXPECT_THAT(shown().toStdString(), testing::ContainsRegex("b999.    ==>>.:7.\r\n.*the end"));
    dup2(usual, STDOUT_FILENO);
    close(usual);
}

TEST_F(LogTest, LinesReachTheFileEveryThreeSeconds)
{
    start();
    log(QtInfoMsg, "late");
    QElapsedTimer clock;
    clock.start();
    EXPECT_TRUE(eventually([&] { return linesOnDisk().size() >= 2; }));
    EXPECT_NEAR(clock.elapsed(), 3000, 500);
}

TEST_F(LogTest, CategoriesHaveFilesOfTheirOwn)
{
    start(0, {"camera", "default", "console", "camera"});
    log(QtInfoMsg, "own", "", "camera");
    log(QtInfoMsg, "other", "", "microphone");
    EXPECT_EQ(lines("camera"), (QStringList{"[info] own    ==>>(:7)\r", ""}));
    EXPECT_EQ(lines(), (QStringList{"[info] other    ==>>(:7)\r", ""}));
    EXPECT_EQ(m_folder.entryList(QDir::Files).size(), 2);
}

TEST_F(LogTest, LinesOfManyThreadsArriveWhole)
{
    start();
    const auto write = [](int) { log(QtInfoMsg, QString(200, 'm')); };
    atOnce(500, {write, write, write, write});
    EXPECT_EQ(lines().filter(QRegularExpression("^\\[info\\] m{200}    ==>>\\(:7\\)\r$")).size(), 2000);
}

} // namespace
