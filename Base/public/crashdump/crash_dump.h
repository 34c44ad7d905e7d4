#pragma once

#include <QString>
#include <QtGlobal>

#ifdef Q_OS_WIN
struct _EXCEPTION_POINTERS;
struct MDRawAssertionInfo;
#else
namespace google_breakpad {
class MinidumpDescriptor;
}
#endif

/**
 * Writes a minidump when the process crashes.
 *
 * The dump is written by the crashing process, named by a new GUID, with the extension ".dmp". After that
 * the process ends by the signal of the crash.
 *
 * Threads: init() is called once, from the main thread. A crash of any thread is written; a stack overflow
 * of the main thread only.
 */
class CrashDump
{
public:
    /// Installs the handler for the rest of the process's life.
    /// @param dumpFolder created when it is missing; relative to the temporary folder. A folder that can't
    ///                   be written shows at the time of the crash.
    /// @param callback called after a dump, inside the signal handler; may be null
    static void init(QString dumpFolder, void (*callback)());

    /// Called by the handler when the dump is on disk or has failed. Tells whether it succeeded. It runs in
    /// a broken process, which it may keep for 700 ms: it logs, and a log lock that was held at the
    /// time of the crash is never released.
#ifdef Q_OS_WIN
    static bool DumpCallback(const wchar_t *dumpPath, const wchar_t *minidumpId, void *context,
                             _EXCEPTION_POINTERS *exceptionInfo, MDRawAssertionInfo *assertion,
                             bool succeeded);
#else
    static bool DumpCallback(const google_breakpad::MinidumpDescriptor &descriptor, void *context,
                             bool succeeded);
#endif
};
