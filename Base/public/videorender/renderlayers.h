#pragma once

#include "renderlayerbase.h"

// One layer for each format; VideoFrame tells how their bytes lie. RenderLayerBase::create() makes them.

class RenderLayerRGBA : public RenderLayerBase
{
public:
    RenderLayerRGBA();
};

class RenderLayerARGB : public RenderLayerBase
{
public:
    RenderLayerARGB();
};

class RenderLayerRGB : public RenderLayerBase
{
public:
    RenderLayerRGB();
};

class RenderLayerBGR : public RenderLayerBase
{
public:
    RenderLayerBGR();
};

class RenderLayerNV12 : public RenderLayerBase
{
public:
    RenderLayerNV12();
};

class RenderLayerYUV420P : public RenderLayerBase
{
public:
    RenderLayerYUV420P();
};

/// Takes the bytes twice, once as Y and something else for each pixel and once as U and V for each pair: both
/// can then be smoothed as they are.
class RenderLayerUYVY : public RenderLayerBase
{
public:
    RenderLayerUYVY();
};

/// Like RenderLayerUYVY.
class RenderLayerYUYV : public RenderLayerBase
{
public:
    RenderLayerYUYV();
};
