#include <gtest/gtest.h>

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <csignal>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// An X server without a screen, for as long as the object lives. It picks a free number by itself.
class VirtualDisplay
{
public:
    VirtualDisplay()
    {
        // Two servers that look for a number at the same time may both take the same one.
        const QByteArray lockFile = QFile::encodeName(QDir::temp().filePath("virtual-display.lock"));
        const int lock = open(lockFile.constData(), O_CREAT | O_RDWR | O_CLOEXEC, 0666);
        flock(lock, LOCK_EX);
        start();
        close(lock);
    }
    ~VirtualDisplay()
    {
        if (m_server <= 0)
            return;
        kill(m_server, SIGTERM);
        waitpid(m_server, nullptr, 0);
    }
    VirtualDisplay(const VirtualDisplay &) = delete;
    VirtualDisplay &operator=(const VirtualDisplay &) = delete;

    const QByteArray &name() const { return m_name; }

private:
    void start()
    {
        int number[2];
        if (pipe2(number, O_CLOEXEC) != 0)
            return;
        m_server = fork();
        if (m_server == 0) {
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            dup2(number[1], 3); // without O_CLOEXEC
            const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
            dup2(nowhere, STDERR_FILENO);
            execlp("Xvfb", "Xvfb", "-displayfd", "3", "-screen", "0", "1920x1200x24", "-nolisten", "tcp",
                   nullptr);
            _exit(127);
        }
        close(number[1]);
        // To the end of the line: a server whose reader has gone before gives up.
        char digit = 0;
        while (read(number[0], &digit, 1) == 1 && digit != '\n')
            m_name += digit;
        close(number[0]);
        if (!m_name.isEmpty())
            m_name.prepend(':');
    }

    pid_t m_server = -1;
    QByteArray m_name;
};

} // namespace

/// Runs tests of widgets: as testmain.cpp does, on a display of their own and with Mesa's software renderer.
int main(int argc, char **argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    if (::testing::GTEST_FLAG(list_tests))
        return RUN_ALL_TESTS();

    QTemporaryDir home;
    const VirtualDisplay display;
    if (!home.isValid() || display.name().isEmpty()) {
        std::fputs("no temporary folder, or no display: is Xvfb installed?\n", stderr);
        return 1;
    }
    qputenv("TMPDIR", home.path().toLocal8Bit());
    qputenv("DISPLAY", display.name());
    qputenv("QT_QPA_PLATFORM", "xcb");
    qputenv("LIBGL_ALWAYS_SOFTWARE", "1");
    qunsetenv("WAYLAND_DISPLAY");

    QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
