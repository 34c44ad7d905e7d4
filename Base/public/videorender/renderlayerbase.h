#pragma once

#include "colourconversion.h"
#include "geometryengine.h"

#include <QOpenGLFunctions>
#include <QOpenGLShaderProgram>

#include <memory>
#include <vector>

/**
 * Shows the frames of one format: shaders, textures, upload and drawing. OpenGL 2.1 and ES 2 suffice.
 *
 * A layer belongs to one OpenGL context: each call, the destructor too, needs that context to be current.
 */
class RenderLayerBase : protected QOpenGLFunctions
{
public:
    virtual ~RenderLayerBase();
    RenderLayerBase(const RenderLayerBase &) = delete;
    RenderLayerBase &operator=(const RenderLayerBase &) = delete;

    /// The layer of a format, with its shaders built. Null, with a line in the log, when they can't be, and
    /// for a format that is none.
    static std::unique_ptr<RenderLayerBase> create(int format);

    /// Copies a frame of the layer's format to the textures. Its size may differ from that of the last one.
    void upload(const VideoFrame &frame);

    /// Draws the frame that was uploaded last. The background is the caller's to paint.
    void draw(const GeometryEngine &geometry, const ColourSettings &settings);

protected:
    /// One texture, and which bytes of the frame it takes.
    struct Texture
    {
        std::size_t plane; ///< of VideoFrame::planes()
        GLenum format;     ///< GL_LUMINANCE, GL_LUMINANCE_ALPHA, GL_RGB or GL_RGBA
        int texelBytes;
        int pixelsAcross; ///< pixels of the frame that one texel is as wide as
        int pixelsDown;
    };

    /**
     * @param textures in the order of the samplers "texture0", "texture1" and so on
     * @param colour   GLSL: the body of a function that returns a vec4, red, green, blue, alpha. at(n) is the
     *                 texel of texture n. For a format in YUV it returns Y, U, V and 1.
     */
    RenderLayerBase(std::vector<Texture> textures, QByteArray colour, bool isYuv);

private:
    bool build();
    void uploadTexture(std::size_t index, const VideoFrame &frame);
    void uploadRows(const uchar *bits, const FramePlane &plane, const Texture &texture, const QSize &size);

    const std::vector<Texture> m_textures;
    const QByteArray m_colour;
    const bool m_isYuv;
    bool m_hasRowLength = false; ///< GL_UNPACK_ROW_LENGTH, which ES 2 has not
    QOpenGLShaderProgram m_program;
    std::vector<GLuint> m_names;
    std::vector<QSize> m_sizes; ///< in texels
    QSize m_frameSize;
};
