// Uploading and drawing a 1080p frame into a framebuffer object by a layer, beside bare glTexSubImage2D and a
// draw call in the same context. Both are measured in turn, each ended by glFinish; the counter "ratio" is
// their quotient.
#include "renderlayerbase.h"

#include <benchmark/benchmark.h>

#include <QGuiApplication>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QOpenGLFramebufferObject>

#include <chrono>

namespace {

constexpr int width = 1920;
constexpr int height = 1080;

template <class Work>
double secondsOf(Work work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// One texture and one quad, and nothing else.
class BareQuad : protected QOpenGLFunctions
{
public:
    explicit BareQuad(GLenum format) : m_format(format)
    {
        initializeOpenGLFunctions();
        m_program.addShaderFromSourceCode(QOpenGLShader::Vertex,
                                          "attribute vec2 corner; varying vec2 place;"
                                          "void main() { place = corner;"
                                          "gl_Position = vec4(corner * 2.0 - 1.0, 0.0, 1.0); }");
        m_program.addShaderFromSourceCode(QOpenGLShader::Fragment,
                                          "varying vec2 place; uniform sampler2D texture0;"
                                          "void main() { gl_FragColor = texture2D(texture0, place); }");
        m_program.bindAttributeLocation("corner", 0);
        m_program.link();
        glGenTextures(1, &m_texture);
        glBindTexture(GL_TEXTURE_2D, m_texture);
        glTexImage2D(GL_TEXTURE_2D, 0, GLint(format), width, height, 0, format, GL_UNSIGNED_BYTE, nullptr);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    }

    void show(const char *pixels)
    {
        static const GLfloat corners[] = {0, 0, 1, 0, 0, 1, 1, 1};
        m_program.bind();
        glBindTexture(GL_TEXTURE_2D, m_texture);
        glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, width, height, m_format, GL_UNSIGNED_BYTE, pixels);
        m_program.enableAttributeArray(0);
        m_program.setAttributeArray(0, corners, 2);
        glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    }

private:
    const GLenum m_format;
    QOpenGLShaderProgram m_program;
    GLuint m_texture = 0;
};

void uploadAndDraw(benchmark::State &state)
{
    QOffscreenSurface surface;
    surface.create();
    QOpenGLContext context;
    if (!context.create() || !context.makeCurrent(&surface)) {
        state.SkipWithError("no OpenGL");
        return;
    }
    const auto format = RenderImgFormat(state.range(0));
    const int texel = format == RGBA ? 4 : 3;
    const auto bytes = std::make_shared<std::vector<char>>(std::size_t(width * height * texel), char(90));
    QString error;
    const VideoFrame frame = VideoFrame::adopt(bytes, width, height, 0, format, DisplayFit, &error);
    GeometryEngine geometry;
    geometry.setFrameSize({width, height});
    geometry.setView({width, height}, 1);
    {
        QOpenGLFramebufferObject target(width, height);
        target.bind();
        context.functions()->glViewport(0, 0, width, height);
        BareQuad bare(texel == 4 ? GL_RGBA : GL_RGB);
        const auto layer = RenderLayerBase::create(format);
        const auto finish = [&] { context.functions()->glFinish(); };
        double ours = 0, theirs = 0;
        bool oursFirst = false;
        const auto runOurs = [&] {
            return secondsOf([&] {
                layer->upload(frame);
                layer->draw(geometry, {});
                finish();
            });
        };
        const auto runBare = [&] {
            return secondsOf([&] {
                bare.show(bytes->data());
                finish();
            });
        };
        runOurs();
        runBare();
        for (auto _ : state) {
            oursFirst = !oursFirst;
            if (!oursFirst)
                theirs += runBare();
            const double seconds = runOurs();
            if (oursFirst)
                theirs += runBare();
            ours += seconds;
            state.SetIterationTime(seconds);
        }
        state.counters["bare_ms"] = theirs / double(state.iterations()) * 1000;
        state.counters["ratio"] = ours / theirs;
    }
    context.doneCurrent();
}
BENCHMARK(uploadAndDraw)->Arg(RGB)->Arg(RGBA)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(60);

} // namespace

int main(int argc, char **argv)
{
    qputenv("LIBGL_ALWAYS_SOFTWARE", "1");
    QGuiApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
