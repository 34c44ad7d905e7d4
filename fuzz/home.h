#pragma once

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>

#include <cstdlib>

/// Gives the process an application object without a log, and a folder of its own as working and temporary
/// folder, removed at the end. To be called once, before anything else of Qt is used.
/// @return the folder's path
inline QString enterHome()
{
    static QTemporaryDir home;
    if (!home.isValid() || !QDir::setCurrent(home.path()))
        std::abort();
    qputenv("TMPDIR", home.path().toLocal8Bit());
    qputenv("QT_NO_GLIB", "1"); // GLib keeps something of each thread that ends, which looks like a leak
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});

    static int argc = 1;
    static char name[] = "fuzz";
    static char *argv[] = {name, nullptr};
    new QCoreApplication(argc, argv); // lives as long as the process, like the threads that it serves
    return home.path();
}
