#include "mylog.h"

#include "eventually.h"

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

    /// What stands in the one file of this base name. Line ends are kept.
    QByteArray content(const QString &name = "AI")
    {
        MyLog::flush();
        const QStringList files = m_folder.entryList({name + "_*.log"});
        EXPECT_EQ(files.size(), 1) << qPrintable(name);
        QFile file(m_folder.filePath(files.value(0)));
        EXPECT_TRUE(file.open(QFile::ReadOnly));
        return file.readAll();
    }

    /// The lines without time and thread.
    QList<QByteArray> lines(const QString &name = "AI")
    {
        QString text = QString::fromUtf8(content(name));
        text.remove(QRegularExpression("^\\[\\d\\d:\\d\\d:\\d\\d:\\d{3}\\] \\[\\d+\\] ",
                                       QRegularExpression::MultilineOption));
        return text.toUtf8().split('\n');
    }

    QDir m_folder{QDir::temp().filePath("Orelia/logs")};
};

TEST_F(LogTest, EachLevelHasItsLine)
{
    start();
    log(QtDebugMsg, "a", "void A::debug(int)");
    log(QtInfoMsg, "b", "int B::info(const QString &) const");
    log(QtWarningMsg, "c");
    log(QtCriticalMsg, "d {} {0} {x} %s");
    log(QtMsgType(77), "nothing");
    EXPECT_EQ(lines(), (QList<QByteArray>{
                           "[debug] a\t\t\t==>>( A::debug:7,)\r",
                           "[info] b    ==>>( B::info:7)\r",
                           "[warning] c    ==>>(:7)\r",
                           "[critical] d {} {0} {x} %s    ==>>(:7)\r",
                           "",
                       }));
    EXPECT_TRUE(QRegularExpression("^AI_\\d{4}-\\d\\d-\\d\\d_\\d\\d-\\d\\d-\\d\\d\\.log$")
                    .match(m_folder.entryList(QDir::Files).value(0))
                    .hasMatch());
}

TEST_F(LogTest, FunctionNamesAreShort)
{
    const std::vector<std::pair<const char *, QByteArray>> cases = {
        {"main", "main"},
        {"main()", "main"},
        {"int main(int, char**)", " main"},
        {"void A::f(B (*)(int))", " (*)"},
        {" f()", " f"},
        {"(anonymous)", "(anonymous)"},
        {nullptr, ""},
    };
    start();
    for (const auto &[signature, expected] : cases)
        log(QtInfoMsg, "x", signature);
    const QList<QByteArray> found = lines();
    for (std::size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(found.value(int(i)), "[info] x    ==>>(" + cases[i].second + ":7)\r");
}

TEST_F(LogTest, OnlyInfoIsCut)
{
    start();
    const QString longText(10001, 'x');
    for (QtMsgType type : {QtDebugMsg, QtInfoMsg, QtWarningMsg, QtCriticalMsg})
        log(type, longText);
    log(QtInfoMsg, QString(10000, 'x'));
    log(QtInfoMsg, QString(5001, QChar(0xE4)));
    QList<int> counts;
    for (const QByteArray &line : content().split('\n'))
        counts.append(line.count('x'));
    EXPECT_EQ(counts, (QList<int>{10001, 10000, 10001, 10001, 10000, 0, 0}));
    EXPECT_EQ(content().count("\xC3\xA4"), 5000) << "bytes are counted";
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
    EXPECT_EQ(lines(),
              (QList<QByteArray>{"[warning] text1    ==>>(:7)\r", "[critical] text2    ==>>(:7)\r", ""}));
}

TEST_F(LogTest, CategoriesHaveFilesOfTheirOwn)
{
    start(0, {"camera", "default", "console", "camera"});
    log(QtInfoMsg, "own", "", "camera");
    log(QtInfoMsg, "other", "", "microphone");
    log(QtInfoMsg, "usual");
    EXPECT_EQ(lines("camera"), (QList<QByteArray>{"[info] own    ==>>(:7)\r", ""}));
    EXPECT_EQ(lines(), (QList<QByteArray>{"[info] other    ==>>(:7)\r", "[info] usual    ==>>(:7)\r", ""}));
    EXPECT_EQ(m_folder.entryList(QDir::Files).size(), 2);
}

TEST_F(LogTest, EachStartHasAFileOfItsOwn)
{
    start();
    EXPECT_TRUE(eventually([&] {
        spdlog::drop_all();
        start();
        return m_folder.entryList(QDir::Files).size() == 2;
    }));
}

TEST_F(LogTest, QtMessagesOfManyThreadsArriveWhole)
{
    start();
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int k = 0; k < 500; ++k)
                qDebug().noquote() << QString(200, 'm');
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    const QList<QByteArray> found = lines();
    ASSERT_EQ(found.size(), 2001);
    const QRegularExpression whole("^\\[debug\\] m{200}\t\t\t==>>\\(.+:\\d+,\\)\r$");
    for (int i = 0; i < 2000; ++i)
        ASSERT_TRUE(whole.match(found[i]).hasMatch()) << found[i].constData();
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
    EXPECT_TRUE(content().contains("room again"));
}

TEST_F(LogTest, FolderThatCannotBeCreatedIsAnException)
{
    EXPECT_THROW(MyLog::init("AI", QDir("/proc/none/logs"), {}, 0, 10000), std::exception);
}

TEST_F(LogTest, FatalMessageAborts)
{
    start();
    EXPECT_EXIT(qFatal("the end"), testing::KilledBySignal(SIGABRT), "");
}

} // namespace
