#pragma once

/// Marks what the open recognisers use of the library that they share.
#define MIROVANE_SHARED __attribute__((visibility("default")))
