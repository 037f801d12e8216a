#include "HXImageFilters.h"

#include <QColor>
#include <QPainter>

#include <algorithm>
#include <cmath>
#include <vector>

namespace HXImageFilters {

namespace {

QImage premultiplied(const QImage &image)
{
    return image.format() == QImage::Format_ARGB32_Premultiplied
               ? image
               : image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
}

// The gray level of a mask pixel: its alpha when the image has one (a mask
// made by maskToAlpha), else its luminance.
double maskLevel(QRgb pixel, bool useAlpha)
{
    if (useAlpha)
        return qAlpha(pixel) / 255.0;
    return qGray(pixel) / 255.0;
}

// For every pixel inside the shape, the distance to the nearest pixel outside
// it (the image border counts as outside), up to `limit`: only the shoulder
// of the height field needs it, so a search of the pixels within `limit` is
// exact where it matters and cheap for the small radii of lettering.
std::vector<double> distanceToOutside(const std::vector<bool> &inside, int width, int height, double limit)
{
    const int reach = int(std::ceil(limit));
    std::vector<double> distance(inside.size(), 0.0);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            if (!inside[size_t(y) * size_t(width) + size_t(x)])
                continue;
            double best = limit * limit;
            for (int dy = -reach; dy <= reach; ++dy) {
                for (int dx = -reach; dx <= reach; ++dx) {
                    const double d2 = double(dx) * dx + double(dy) * dy;
                    if (d2 >= best)
                        continue;
                    const int sx = x + dx;
                    const int sy = y + dy;
                    const bool outside = sx < 0 || sy < 0 || sx >= width || sy >= height ||
                                         !inside[size_t(sy) * size_t(width) + size_t(sx)];
                    if (outside)
                        best = d2;
                }
            }
            distance[size_t(y) * size_t(width) + size_t(x)] = std::sqrt(best);
        }
    }
    return distance;
}

} // namespace

QImage maskToAlpha(const QImage &mask)
{
    const QImage gray = mask.convertToFormat(QImage::Format_Grayscale8);
    QImage out(gray.size(), QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < gray.height(); ++y) {
        const uchar *in = gray.constScanLine(y);
        auto *line = reinterpret_cast<QRgb *>(out.scanLine(y));
        for (int x = 0; x < gray.width(); ++x)
            line[x] = qRgba(in[x], in[x], in[x], in[x]);
    }
    return out;
}

QImage heightFieldFromMask(const QImage &alphaMask, double radius)
{
    const QImage mask = premultiplied(alphaMask);
    const int w = mask.width();
    const int h = mask.height();
    QImage out(mask.size(), QImage::Format_ARGB32_Premultiplied);
    out.fill(Qt::transparent);
    if (w == 0 || h == 0)
        return out;
    std::vector<bool> inside(size_t(w) * size_t(h));
    for (int y = 0; y < h; ++y) {
        const auto *line = reinterpret_cast<const QRgb *>(mask.constScanLine(y));
        for (int x = 0; x < w; ++x)
            inside[size_t(y) * size_t(w) + size_t(x)] = qAlpha(line[x]) >= 128;
    }
    const double r = std::max(radius, 1e-6);
    const std::vector<double> distance = distanceToOutside(inside, w, h, r);
    for (int y = 0; y < h; ++y) {
        const auto *in = reinterpret_cast<const QRgb *>(mask.constScanLine(y));
        auto *line = reinterpret_cast<QRgb *>(out.scanLine(y));
        for (int x = 0; x < w; ++x) {
            const double level = qAlpha(in[x]) / 255.0;
            if (level <= 0.0)
                continue;
            // A rounded shoulder: the height of a quarter circle of the radius.
            const double t = std::min(distance[size_t(y) * size_t(w) + size_t(x)] / r, 1.0);
            const double height = std::sqrt(1.0 - (1.0 - t) * (1.0 - t));
            const int g = int(std::lround(height * 255.0 * level));
            const int a = int(std::lround(255.0 * level));
            line[x] = qRgba(g, g, g, a);
        }
    }
    return out;
}

QImage shadedMaterial(const QImage &heightField, const QImage &shading, double scale)
{
    const QImage field = premultiplied(heightField);
    const QImage shade = premultiplied(shading);
    const int w = field.width();
    const int h = field.height();
    QImage out(field.size(), QImage::Format_ARGB32_Premultiplied);
    out.fill(Qt::transparent);
    if (w == 0 || h == 0 || shade.isNull())
        return out;
    auto heightAt = [&](int x, int y) {
        x = std::clamp(x, 0, w - 1);
        y = std::clamp(y, 0, h - 1);
        const QRgb p = reinterpret_cast<const QRgb *>(field.constScanLine(y))[x];
        return qAlpha(p) == 0 ? 0.0 : qRed(p) / double(qAlpha(p));
    };
    const int sw = shade.width();
    const int sh = shade.height();
    for (int y = 0; y < h; ++y) {
        const auto *in = reinterpret_cast<const QRgb *>(field.constScanLine(y));
        auto *line = reinterpret_cast<QRgb *>(out.scanLine(y));
        for (int x = 0; x < w; ++x) {
            const int alpha = qAlpha(in[x]);
            if (alpha == 0)
                continue;
            // Central differences; image rows grow downwards, the shading
            // image's y grows with the normal's y (up).
            const double dx = (heightAt(x + 1, y) - heightAt(x - 1, y)) * 0.5 * scale / 10.0;
            const double dy = (heightAt(x, y - 1) - heightAt(x, y + 1)) * 0.5 * scale / 10.0;
            const double length = std::sqrt(dx * dx + dy * dy + 1.0);
            const double nx = -dx / length;
            const double ny = -dy / length;
            const int sx = std::clamp(int((nx + 1.0) * 0.5 * (sw - 1) + 0.5), 0, sw - 1);
            const int sy = std::clamp(int((1.0 - (ny + 1.0) * 0.5) * (sh - 1) + 0.5), 0, sh - 1);
            const QRgb c = reinterpret_cast<const QRgb *>(shade.constScanLine(sy))[sx];
            // Shading colours are opaque; premultiply by the field's alpha.
            line[x] = qRgba(qRed(c) * alpha / 255, qGreen(c) * alpha / 255, qBlue(c) * alpha / 255, alpha);
        }
    }
    return out;
}

QImage blendWithMask(const QImage &image, const QImage &background, const QImage &mask)
{
    const QImage a = premultiplied(image);
    const QImage b = premultiplied(background);
    const bool maskHasAlpha = mask.hasAlphaChannel();
    const QImage m = premultiplied(mask);
    const int w = std::min({a.width(), b.width(), m.width()});
    const int h = std::min({a.height(), b.height(), m.height()});
    QImage out(w, h, QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < h; ++y) {
        const auto *pa = reinterpret_cast<const QRgb *>(a.constScanLine(y));
        const auto *pb = reinterpret_cast<const QRgb *>(b.constScanLine(y));
        const auto *pm = reinterpret_cast<const QRgb *>(m.constScanLine(y));
        auto *line = reinterpret_cast<QRgb *>(out.scanLine(y));
        for (int x = 0; x < w; ++x) {
            const double t = maskLevel(pm[x], maskHasAlpha);
            auto mix = [t](int from, int to) { return int(std::lround(from + (to - from) * t)); };
            line[x] = qRgba(mix(qRed(pb[x]), qRed(pa[x])), mix(qGreen(pb[x]), qGreen(pa[x])),
                            mix(qBlue(pb[x]), qBlue(pa[x])), mix(qAlpha(pb[x]), qAlpha(pa[x])));
        }
    }
    return out;
}

} // namespace HXImageFilters
