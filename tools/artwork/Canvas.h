#pragma once

#include "Sdf.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace Artwork {

/// A colour with straight (not premultiplied) alpha, each part from 0 to 1.
struct Colour
{
    float r = 0, g = 0, b = 0, a = 1;

    /// 0xRRGGBB with the given opacity.
    static Colour rgb(std::uint32_t rgb, float alpha = 1);
    Colour withAlpha(float alpha) const { return {r, g, b, alpha}; }
    /// The colour `t` of the way from this one to `other`.
    Colour mix(const Colour& other, float t) const;
};

/// An RGBA picture that shapes are painted onto, anti-aliased over one pixel of their edge.
class Canvas
{
public:
    using Paint = std::function<Colour(float x, float y)>;

    Canvas(int width, int height);

    int width() const { return width_; }
    int height() const { return height_; }

    void fill(const Sdf::Field& shape, const Colour& colour);
    void fill(const Sdf::Field& shape, const Paint& paint);
    /// A paint that runs from `top` at y0 to `bottom` at y1.
    static Paint verticalGradient(const Colour& top, const Colour& bottom, float y0, float y1);

    /// The pixels as 8-bit RGBA, row by row.
    std::vector<std::uint8_t> pixels() const;

private:
    int width_;
    int height_;
    std::vector<float> premultiplied_;
};

} // namespace Artwork
