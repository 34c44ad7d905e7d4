#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QTemporaryDir>

/// Runs the tests with an application object and in a temporary folder of their own: everything that the
/// system keeps under the temporary folder (socket, logs, dumps, shared-memory keys) lies in there.
int main(int argc, char **argv)
{
    QTemporaryDir home;
    if (!home.isValid())
        return 1;
    qputenv("TMPDIR", home.path().toLocal8Bit());

    QCoreApplication application(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
