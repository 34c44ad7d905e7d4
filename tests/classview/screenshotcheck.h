#pragma once

#include <QString>

/// Whether a PNG file shows the viewer over the demo class: the camera's picture, at least three names at
/// their faces and a raised hand. What misses becomes a failure of the running test.
void expectDemoClass(const QString &file);
