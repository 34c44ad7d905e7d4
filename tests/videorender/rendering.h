#pragma once

#include "eventually.h"
#include "videopainter.h"
#include "videorender.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QOpenGLContext>
#include <QOpenGLFunctions>

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
    QImage image = display.widget()->grab().toImage().convertToFormat(QImage::Format_RGB32);
    if (auto *const render = dynamic_cast<VideoRender *>(&display))
        expectTidyContext(*render);
    return image;
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

/// Tests of both widgets, which are held against the same expectations.
class DisplayTest : public ::testing::TestWithParam<bool>
{
protected:
    const std::unique_ptr<VideoDisplay> display{makeDisplay(GetParam())};
};

inline const char *nameOfWidget(const ::testing::TestParamInfo<bool> &widget)
{
    return widget.param ? "OpenGL" : "Painter";
}
