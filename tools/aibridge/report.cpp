#include "report.h"

#include <cstdio>

void report(const QString &text)
{
    std::fprintf(stderr, "aibridge: %s\n", qPrintable(text));
    std::fflush(stderr);
}
