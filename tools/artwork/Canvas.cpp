#include "Canvas.h"

#include <algorithm>
#include <cmath>

namespace Artwork {

Colour Colour::rgb(std::uint32_t rgb, float alpha)
{
    return {float((rgb >> 16) & 0xFF) / 255, float((rgb >> 8) & 0xFF) / 255, float(rgb & 0xFF) / 255, alpha};
}

Colour Colour::mix(const Colour& other, float t) const
{
    return {r + (other.r - r) * t, g + (other.g - g) * t, b + (other.b - b) * t, a + (other.a - a) * t};
}

Canvas::Canvas(int width, int height)
    : width_(width), height_(height), premultiplied_(static_cast<size_t>(width) * height * 4, 0.0f)
{
}

void Canvas::fill(const Sdf::Field& shape, const Colour& colour)
{
    fill(shape, [&](float, float) { return colour; });
}

void Canvas::fill(const Sdf::Field& shape, const Paint& paint)
{
    for (int y = 0; y < height_; ++y)
        for (int x = 0; x < width_; ++x)
        {
            const float cx = x + 0.5f, cy = y + 0.5f;
            const float coverage = std::clamp(0.5f - shape(cx, cy), 0.0f, 1.0f);
            if (coverage <= 0)
                continue;
            const Colour colour = paint(cx, cy);
            const float alpha = colour.a * coverage;
            float* pixel = &premultiplied_[(static_cast<size_t>(y) * width_ + x) * 4];
            pixel[0] = colour.r * alpha + pixel[0] * (1 - alpha);
            pixel[1] = colour.g * alpha + pixel[1] * (1 - alpha);
            pixel[2] = colour.b * alpha + pixel[2] * (1 - alpha);
            pixel[3] = alpha + pixel[3] * (1 - alpha);
        }
}

Canvas::Paint Canvas::verticalGradient(const Colour& top, const Colour& bottom, float y0, float y1)
{
    return [=](float, float y) { return top.mix(bottom, std::clamp((y - y0) / (y1 - y0), 0.0f, 1.0f)); };
}

std::vector<std::uint8_t> Canvas::pixels() const
{
    std::vector<std::uint8_t> out(premultiplied_.size());
    for (size_t i = 0; i < premultiplied_.size(); i += 4)
    {
        const float alpha = premultiplied_[i + 3];
        for (size_t k = 0; k < 3; ++k)
        {
            const float straight = alpha > 0 ? premultiplied_[i + k] / alpha : 0.0f;
            out[i + k] = static_cast<std::uint8_t>(std::lround(std::clamp(straight, 0.0f, 1.0f) * 255));
        }
        out[i + 3] = static_cast<std::uint8_t>(std::lround(std::clamp(alpha, 0.0f, 1.0f) * 255));
    }
    return out;
}

} // namespace Artwork
