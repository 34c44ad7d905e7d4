#pragma once

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QTemporaryDir>

/// Runs a program's benchmarks with an application object and in a temporary folder of their own. The log is
/// dropped, or goes to the handler.
inline int runBenchmarks(
    int argc, char **argv,
    QtMessageHandler log = [](QtMsgType, const QMessageLogContext &, const QString &) {})
{
    QTemporaryDir home;
    qputenv("TMPDIR", home.path().toLocal8Bit());
    QCoreApplication application(argc, argv);
    qInstallMessageHandler(log);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
