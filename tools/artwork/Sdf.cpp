#include "Sdf.h"

#include <algorithm>
#include <cmath>

namespace Artwork {

namespace {

float segmentDistance(float x, float y, Sdf::Point a, Sdf::Point b)
{
    const float px = x - a.first, py = y - a.second;
    const float bx = b.first - a.first, by = b.second - a.second;
    const float length = bx * bx + by * by;
    const float h = length > 0 ? std::clamp((px * bx + py * by) / length, 0.0f, 1.0f) : 0.0f;
    return std::hypot(px - bx * h, py - by * h);
}

} // namespace

Sdf::Field Sdf::circle(float cx, float cy, float radius)
{
    return [=](float x, float y) { return std::hypot(x - cx, y - cy) - radius; };
}

Sdf::Field Sdf::ring(float cx, float cy, float radius, float width)
{
    return [=](float x, float y) { return std::fabs(std::hypot(x - cx, y - cy) - radius) - width / 2; };
}

Sdf::Field Sdf::box(float cx, float cy, float hw, float hh, float cornerRadius)
{
    return [=](float x, float y) {
        const float qx = std::fabs(x - cx) - (hw - cornerRadius);
        const float qy = std::fabs(y - cy) - (hh - cornerRadius);
        return std::hypot(std::max(qx, 0.0f), std::max(qy, 0.0f)) + std::min(std::max(qx, qy), 0.0f) - cornerRadius;
    };
}

Sdf::Field Sdf::line(Point a, Point b, float width)
{
    return [=](float x, float y) { return segmentDistance(x, y, a, b) - width / 2; };
}

Sdf::Field Sdf::polyline(const std::vector<Point>& points, float width)
{
    return [=](float x, float y) {
        float nearest = 1e9f;
        for (size_t i = 1; i < points.size(); ++i)
            nearest = std::min(nearest, segmentDistance(x, y, points[i - 1], points[i]));
        return nearest - width / 2;
    };
}

Sdf::Field Sdf::polygon(std::vector<Point> points)
{
    return [points = std::move(points)](float x, float y) {
        float nearest = 1e9f;
        bool inside = false;
        for (size_t i = 0, j = points.size() - 1; i < points.size(); j = i++)
        {
            const auto [xi, yi] = points[i];
            const auto [xj, yj] = points[j];
            nearest = std::min(nearest, segmentDistance(x, y, points[i], points[j]));
            if ((yi > y) != (yj > y) && x < (xj - xi) * (y - yi) / (yj - yi) + xi)
                inside = !inside;
        }
        return inside ? -nearest : nearest;
    };
}

Sdf::Field Sdf::halfPlane(Point a, Point b)
{
    return [=](float x, float y) {
        const float dx = b.first - a.first, dy = b.second - a.second;
        const float length = std::hypot(dx, dy);
        // Screen coordinates grow downwards, so "left" of a to b is the side of (dy, -dx).
        return ((x - a.first) * -dy + (y - a.second) * dx) / length;
    };
}

Sdf::Field Sdf::unite(Field a, Field b)
{
    return [=](float x, float y) { return std::min(a(x, y), b(x, y)); };
}

Sdf::Field Sdf::intersect(Field a, Field b)
{
    return [=](float x, float y) { return std::max(a(x, y), b(x, y)); };
}

Sdf::Field Sdf::subtract(Field a, Field b)
{
    return [=](float x, float y) { return std::max(a(x, y), -b(x, y)); };
}

Sdf::Field Sdf::translate(Field shape, float dx, float dy)
{
    return [=](float x, float y) { return shape(x - dx, y - dy); };
}

} // namespace Artwork
