#pragma once

#include <functional>
#include <utility>
#include <vector>

namespace Artwork {

/// Shapes as signed distance fields: the distance in pixels from a point to the shape's edge,
/// negative inside. Shapes combine by taking minima and maxima of their distances.
class Sdf
{
public:
    using Field = std::function<float(float x, float y)>;
    using Point = std::pair<float, float>;

    static Field circle(float cx, float cy, float radius);
    /// A ring of the given radius (to the middle of its line) and line width.
    static Field ring(float cx, float cy, float radius, float width);
    /// A rectangle of half sizes hw, hh around its centre with rounded corners.
    static Field box(float cx, float cy, float hw, float hh, float cornerRadius);
    /// A line from a to b with round ends, of the given width.
    static Field line(Point a, Point b, float width);
    /// A line through several points, with round joins.
    static Field polyline(const std::vector<Point>& points, float width);
    static Field polygon(std::vector<Point> points);
    /// The side of the line through a and b that lies to its left when looking from a to b.
    static Field halfPlane(Point a, Point b);

    static Field unite(Field a, Field b);
    static Field intersect(Field a, Field b);
    static Field subtract(Field a, Field b);
    static Field translate(Field shape, float dx, float dy);
};

} // namespace Artwork
