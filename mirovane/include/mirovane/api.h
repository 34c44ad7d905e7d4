#pragma once

/**
 * Marks the classes of the recogniser interface whose factory a shared library provides. A library
 * that implements one defines MIROVANE_BUILD when it is compiled.
 */
#ifdef _WIN32
#ifdef MIROVANE_BUILD
#define MIROVANE_API __declspec(dllexport)
#else
#define MIROVANE_API __declspec(dllimport)
#endif
#else
#define MIROVANE_API __attribute__((visibility("default")))
#endif
