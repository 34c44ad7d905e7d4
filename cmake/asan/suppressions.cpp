// Leaks of libraries of the system, for programs with windows. The name is LeakSanitizer's own.
extern "C" const char *__lsan_default_suppressions()
{
    return "leak:libGLX\n"
           "leak:libGLdispatch\n"
           "leak:libEGL\n"
           "leak:_dri.so\n"
           "leak:libLLVM\n"
           "leak:libX11\n"
           "leak:libxcb\n"
           "leak:libfontconfig\n"
           "leak:libdbus\n"
           "leak:libQt5XcbQpa\n"
           "leak:libqxcb\n"
           "leak:<unknown module>\n"; // a driver that was unloaded before the end
}
