#include "renderlayers.h"

#include <QDebug>

// In a texture of luminance and alpha the first byte is red (and green and blue), the second is alpha.

RenderLayerRGBA::RenderLayerRGBA()
    : RenderLayerBase({{0, GL_RGBA, 4, 1, 1}}, "return vec4(at0.bgr, 1.0);", false)
{
}

RenderLayerARGB::RenderLayerARGB() : RenderLayerBase({{0, GL_RGBA, 4, 1, 1}}, "return at0.bgra;", false) {}

RenderLayerRGB::RenderLayerRGB()
    : RenderLayerBase({{0, GL_RGB, 3, 1, 1}}, "return vec4(at0.rgb, 1.0);", false)
{
}

RenderLayerBGR::RenderLayerBGR()
    : RenderLayerBase({{0, GL_RGB, 3, 1, 1}}, "return vec4(at0.bgr, 1.0);", false)
{
}

RenderLayerNV12::RenderLayerNV12()
    : RenderLayerBase({{0, GL_LUMINANCE, 1, 1, 1}, {1, GL_LUMINANCE_ALPHA, 2, 2, 2}},
                      "return vec4(at0.r, at1.ra, 1.0);", true)
{
}

RenderLayerYUV420P::RenderLayerYUV420P()
    : RenderLayerBase({{0, GL_LUMINANCE, 1, 1, 1}, {1, GL_LUMINANCE, 1, 2, 2}, {2, GL_LUMINANCE, 1, 2, 2}},
                      "return vec4(at0.r, at1.r, at2.r, 1.0);", true)
{
}

RenderLayerUYVY::RenderLayerUYVY()
    : RenderLayerBase({{0, GL_LUMINANCE_ALPHA, 2, 1, 1}, {0, GL_RGBA, 4, 2, 1}},
                      "return vec4(at0.a, at1.rb, 1.0);", true)
{
}

RenderLayerYUYV::RenderLayerYUYV()
    : RenderLayerBase({{0, GL_LUMINANCE_ALPHA, 2, 1, 1}, {0, GL_RGBA, 4, 2, 1}},
                      "return vec4(at0.r, at1.ga, 1.0);", true)
{
}

std::unique_ptr<RenderLayerBase> RenderLayerBase::create(int format)
{
    std::unique_ptr<RenderLayerBase> layer;
    switch (format) {
    case RGBA:
        layer = std::make_unique<RenderLayerRGBA>();
        break;
    case NV12:
        layer = std::make_unique<RenderLayerNV12>();
        break;
    case UYVY:
        layer = std::make_unique<RenderLayerUYVY>();
        break;
    case YUV420P:
        layer = std::make_unique<RenderLayerYUV420P>();
        break;
    case RGB:
        layer = std::make_unique<RenderLayerRGB>();
        break;
    case BGR:
        layer = std::make_unique<RenderLayerBGR>();
        break;
    case ARGB:
        layer = std::make_unique<RenderLayerARGB>();
        break;
    case YUYV:
        layer = std::make_unique<RenderLayerYUYV>();
        break;
    default:
        qWarning() << "no layer for the video format" << format;
        return nullptr;
    }
    if (!layer->build())
        return nullptr;
    return layer;
}
