#include <gtest/gtest.h>

#include <QApplication>
#include <QTemporaryDir>

#include <unistd.h>
#include <vector>

/// Runs tests of widgets: as testmain.cpp does, on a display of their own, which xvfb-run lends for this
/// program, and with Mesa's software renderer.
int main(int argc, char **argv)
{
    std::vector<const char *> onDisplay{"xvfb-run", "-a", "-s", "-screen 0 1920x1200x24"};
    onDisplay.insert(onDisplay.end(), argv, argv + argc + 1); // with the null pointer behind the last
    ::testing::InitGoogleTest(&argc, argv);
    if (::testing::GTEST_FLAG(list_tests))
        return RUN_ALL_TESTS();

    const char *const hasDisplay = "TESTS_HAVE_A_DISPLAY";
    if (!qEnvironmentVariableIsSet(hasDisplay)) {
        qputenv(hasDisplay, "1");
        execvp(onDisplay[0], const_cast<char **>(onDisplay.data()));
        std::perror(onDisplay[0]);
        return 1;
    }
    QTemporaryDir home;
    if (!home.isValid())
        return 1;
    qputenv("TMPDIR", home.path().toLocal8Bit());
    qputenv("QT_QPA_PLATFORM", "xcb");
    qputenv("LIBGL_ALWAYS_SOFTWARE", "1");
    qunsetenv("WAYLAND_DISPLAY");

    QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
