#pragma once

#include "eventually.h"
#include "videopainter.h"
#include "videorender.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QOpenGLContext>
#include <QOpenGLFunctions>

/// Both widgets, to be held against the same expectations.
inline VideoDisplay *makeDisplay(bool withOpenGL)
{
    return withOpenGL ? static_cast<VideoDisplay *>(new VideoRender) : new VideoPainter;
}

/// A layer leaves the context as it was, and no textures behind.
inline void expectTidyContext(VideoRender &render)
{
    render.makeCurrent();
    auto *const gl = render.context()->functions();
    EXPECT_EQ(gl->glGetError(), GLenum(GL_NO_ERROR));
    constexpr GLenum unpackRowLength = 0x0CF2;
    const std::pair<GLenum, GLint> usual[] = {{GL_UNPACK_ALIGNMENT, 4},
                                              {unpackRowLength, 0},
                                              {GL_ACTIVE_TEXTURE, GL_TEXTURE0},
                                              {GL_CURRENT_PROGRAM, 0}};
    for (const auto &[name, value] : usual) {
        GLint found = -1;
        gl->glGetIntegerv(name, &found);
        EXPECT_EQ(found, value) << std::hex << name;
    }
    GLint enabled = -1;
    gl->glGetVertexAttribiv(0, GL_VERTEX_ATTRIB_ARRAY_ENABLED, &enabled);
    EXPECT_EQ(enabled, 0);
    int textures = 0;
    for (GLuint name = 1; name < 100; ++name)
        textures += gl->glIsTexture(name);
    EXPECT_LE(textures, 8);
}

/// What the widget shows, once it has shown everything that it was given.
inline QImage shownBy(VideoDisplay &display)
{
    QCoreApplication::processEvents();
    display.widget()->repaint();
    if (auto *const render = dynamic_cast<VideoRender *>(&display)) {
        QImage image = render->grabFramebuffer().convertToFormat(QImage::Format_RGB32);
        expectTidyContext(*render);
        return image;
    }
    return display.widget()->grab().toImage().convertToFormat(QImage::Format_RGB32);
}

/// A widget of that many pixels on the screen.
inline void showAs(VideoDisplay &display, const QSize &size)
{
    display.widget()->setWindowFlag(Qt::FramelessWindowHint);
    display.widget()->resize(size);
    display.widget()->show();
    ASSERT_TRUE(
        eventually([&] { return display.widget()->size() == size && display.widget()->isVisible(); }));
    QCoreApplication::processEvents();
}

/// The largest difference of a channel between two pictures of one size; 256 for different sizes.
inline int largestDifference(const QImage &a, const QImage &b)
{
    if (a.size() != b.size())
        return 256;
    int largest = 0;
    for (int y = 0; y < a.height(); ++y) {
        for (int x = 0; x < a.width(); ++x) {
            const QRgb left = a.pixel(x, y), right = b.pixel(x, y);
            largest =
                std::max({largest, std::abs(qRed(left) - qRed(right)), std::abs(qGreen(left) - qGreen(right)),
                          std::abs(qBlue(left) - qBlue(right))});
        }
    }
    return largest;
}
