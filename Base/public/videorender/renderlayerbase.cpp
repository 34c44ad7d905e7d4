#include "renderlayerbase.h"

#include <QDebug>
#include <QGenericMatrix>
#include <QOpenGLContext>

#include <iterator>

namespace {

// ES 2 knows neither and Qt's header for it does not tell; in the contexts that have it, it is this.
constexpr GLenum unpackRowLength = 0x0CF2;

const char *const vertexShader = R"(
attribute vec2 corner;
uniform mat3 unitToClip;
varying vec2 place;
void main()
{
    place = corner;
    gl_Position = vec4((unitToClip * vec3(corner, 1.0)).xy, 0.0, 1.0);
}
)";

const char *const fragmentHead = R"(
#ifdef GL_ES
#ifdef GL_FRAGMENT_PRECISION_HIGH
precision highp float;
#else
precision mediump float;
#endif
#endif
varying vec2 place;
uniform vec3 background;
)";

const char *const rgbTail = R"(
void main()
{
    vec4 colour = pixel();
    gl_FragColor = vec4(mix(background, colour.rgb, colour.a), 1.0);
}
)";

const char *const yuvTail = R"(
uniform mat3 yuvToRgb;
uniform vec3 yuvOffset;
void main()
{
    gl_FragColor = vec4(yuvToRgb * (pixel().rgb - yuvOffset), 1.0);
}
)";

/// The samplers, at(n) for each of them, and the colour of a pixel.
QByteArray sampling(std::size_t textures, const QByteArray &colour)
{
    QByteArray source;
    for (std::size_t i = 0; i < textures; ++i) {
        const QByteArray number = QByteArray::number(int(i));
        source += "uniform sampler2D texture" + number + ";\nuniform vec2 part" + number + ";\n";
        source += "#define at" + number + " texture2D(texture" + number + ", place * part" + number + ")\n";
    }
    return source + "vec4 pixel()\n{\n" + colour + "\n}\n";
}

} // namespace

RenderLayerBase::RenderLayerBase(std::vector<Texture> textures, QByteArray colour, bool isYuv)
    : m_textures(std::move(textures)),
      m_colour(std::move(colour)),
      m_isYuv(isYuv),
      m_names(m_textures.size(), 0),
      m_sizes(m_textures.size())
{
}

RenderLayerBase::~RenderLayerBase()
{
    glDeleteTextures(GLsizei(m_names.size()), m_names.data());
}

bool RenderLayerBase::build()
{
    initializeOpenGLFunctions();
    const QOpenGLContext *const context = QOpenGLContext::currentContext();
    m_hasRowLength = !context->isOpenGLES() || context->format().majorVersion() >= 3;

    const QByteArray fragment =
        fragmentHead + sampling(m_textures.size(), m_colour) + (m_isYuv ? yuvTail : rgbTail);
    if (!m_program.addShaderFromSourceCode(QOpenGLShader::Vertex, vertexShader) ||
        !m_program.addShaderFromSourceCode(QOpenGLShader::Fragment, fragment) || !m_program.link()) {
        qWarning().noquote() << "no shaders for the video:" << m_program.log();
        return false;
    }
    glGenTextures(GLsizei(m_names.size()), m_names.data());
    for (const GLuint name : m_names) {
        glBindTexture(GL_TEXTURE_2D, name);
        // Sides that are no powers of two need this in ES 2.
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    }
    return true;
}

void RenderLayerBase::upload(const VideoFrame &frame)
{
    m_frameSize = frame.size();
    for (std::size_t i = 0; i < m_textures.size(); ++i)
        uploadTexture(i, frame);
}

void RenderLayerBase::uploadTexture(std::size_t index, const VideoFrame &frame)
{
    const Texture &texture = m_textures[index];
    const FramePlane &plane = frame.planes()[texture.plane];
    const QSize size(plane.rowBytes / texture.texelBytes, plane.rows);
    glBindTexture(GL_TEXTURE_2D, m_names[index]);
    if (m_sizes[index] != size) {
        m_sizes[index] = size;
        glTexImage2D(GL_TEXTURE_2D, 0, GLint(texture.format), size.width(), size.height(), 0, texture.format,
                     GL_UNSIGNED_BYTE, nullptr);
    }
    uploadRows(frame.bits(plane), plane, texture, size);
}

void RenderLayerBase::uploadRows(const uchar *bits, const FramePlane &plane, const Texture &texture,
                                 const QSize &size)
{
    const auto upload = [&](int firstRow, int rows, const uchar *from) {
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, firstRow, size.width(), rows, texture.format, GL_UNSIGNED_BYTE,
                        from);
    };
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    if (plane.stride == plane.rowBytes) {
        upload(0, plane.rows, bits);
    } else if (m_hasRowLength && plane.stride % texture.texelBytes == 0) {
        glPixelStorei(unpackRowLength, plane.stride / texture.texelBytes);
        // The padding of the last row need not be there, and must not be touched.
        upload(0, plane.rows, bits);
        glPixelStorei(unpackRowLength, 0);
    } else {
        for (int row = 0; row < plane.rows; ++row)
            upload(row, 1, bits + std::int64_t(plane.stride) * row);
    }
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
}

void RenderLayerBase::draw(const GeometryEngine &geometry, const ColourSettings &settings)
{
    if (m_frameSize.isEmpty() || geometry.viewSize().isEmpty())
        return;
    static const GLfloat corners[] = {0, 0, 1, 0, 0, 1, 1, 1};

    m_program.bind();
    m_program.setUniformValue("unitToClip", geometry.unitToClip());
    m_program.setUniformValue("background", float(settings.background.redF()),
                              float(settings.background.greenF()), float(settings.background.blueF()));
    if (m_isYuv) {
        const YuvToRgb conversion = yuvToRgb(settings, m_frameSize.height());
        m_program.setUniformValue("yuvToRgb", QMatrix3x3(conversion.matrix.data()));
        m_program.setUniformValueArray("yuvOffset", conversion.offset.data(), 1, 3);
    }
    const GLint filter = geometry.isPixelExact() ? GL_NEAREST : GL_LINEAR;
    for (std::size_t i = 0; i < m_textures.size(); ++i) {
        glActiveTexture(GL_TEXTURE0 + GLenum(i));
        glBindTexture(GL_TEXTURE_2D, m_names[i]);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, filter);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, filter);
        const QByteArray number = QByteArray::number(int(i));
        m_program.setUniformValue(("texture" + number).constData(), GLuint(i));
        // A texture that stands for pairs of pixels is wider than a frame of an odd width.
        m_program.setUniformValue(
            ("part" + number).constData(),
            float(m_frameSize.width()) / float(m_sizes[i].width() * m_textures[i].pixelsAcross),
            float(m_frameSize.height()) / float(m_sizes[i].height() * m_textures[i].pixelsDown));
    }
    glActiveTexture(GL_TEXTURE0);

    glBindBuffer(GL_ARRAY_BUFFER, 0); // whatever a widget derived from ours draws with
    m_program.enableAttributeArray("corner");
    m_program.setAttributeArray("corner", corners, 2);
    glDrawArrays(GL_TRIANGLE_STRIP, 0, GLsizei(std::size(corners) / 2));
    m_program.disableAttributeArray("corner");
    m_program.release();
}
