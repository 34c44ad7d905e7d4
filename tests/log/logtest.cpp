#include "mylog.h"

#include <QDebug>
#include <QLoggingCategory>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <csignal>
#include <spdlog/spdlog.h>
#include <sys/resource.h>
#include <thread>
#include <vector>

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
    log(QtWarningMsg, "c");
    log(QtCriticalMsg, "d {} {0} {x} %s");
    log(QtMsgType(77), "nothing");
    for (const char *signature : {"int B::info(const QString &) const", "main", "int main(int, char**)",
                                  "void A::f(B (*)(int))", " f()", "(anonymous)"})
        log(QtInfoMsg, "b", signature);
    log(QtInfoMsg, "b", nullptr);
    EXPECT_EQ(lines(),
              (QStringList{"[debug] a\t\t\t==>>( A::debug:7,)\r", "[warning] c    ==>>(:7)\r",
                           "[critical] d {} {0} {x} %s    ==>>(:7)\r", "[info] b    ==>>( B::info:7)\r",
                           "[info] b    ==>>(main:7)\r", "[info] b    ==>>( main:7)\r",
                           "[info] b    ==>>( (*):7)\r", "[info] b    ==>>( f:7)\r",
                           "[info] b    ==>>((anonymous):7)\r", "[info] b    ==>>(:7)\r", ""}));
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

TEST_F(LogTest, ThresholdHoldsForFileAndConsole)
{
    start(2);
    MyLog::setConsole(true);
    testing::internal::CaptureStdout();
    for (QtMsgType type : {QtDebugMsg, QtInfoMsg, QtWarningMsg, QtCriticalMsg})
        log(type, QString("text%1").arg(type));
    MyLog::flush();
    const QByteArray console = QByteArray::fromStdString(testing::internal::GetCapturedStdout());
    EXPECT_EQ(console.count("text"), 2);
    EXPECT_TRUE(console.contains("text1    ==>>(:7)\r\n")) << console.constData();
    EXPECT_EQ(lines(), (QStringList{"[warning] text1    ==>>(:7)\r", "[critical] text2    ==>>(:7)\r", ""}));
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

TEST_F(LogTest, QtMessagesOfManyThreadsArriveWhole)
{
    start();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int k = 0; k < 500; ++k)
                qDebug().noquote() << QString(200, 'm');
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    const QStringList found = lines();
    EXPECT_EQ(found.size(), 2001);
    EXPECT_EQ(found.filter(QRegularExpression("^\\[debug\\] m{200}\t\t\t==>>\\(.+:\\d+,\\)\r$")).size(),
              2000);
}

TEST_F(LogTest, FullDiskLosesLinesOnly)
{
    start();
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto action = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit tight{20000, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &tight), 0);
    for (int i = 0; i < 100; ++i)
        log(QtInfoMsg, QString(1000, 'x'));
    MyLog::flush();
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    std::signal(SIGXFSZ, action);

    log(QtInfoMsg, "room again");
    EXPECT_EQ(lines().filter("room again").size(), 1);
}

TEST_F(LogTest, FatalMessagesAbortAndAnImpossibleFolderThrows)
{
    start();
    EXPECT_EXIT(qFatal("the end"), testing::KilledBySignal(SIGABRT), "");
    EXPECT_THROW(MyLog::init("AI", QDir("/proc/none/logs"), {}, 0, 10000), std::exception);
}

} // namespace
