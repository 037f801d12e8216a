#pragma once

#include <QImage>

// The image operations behind embossed lettering, on QImage. Images are
// ARGB32 premultiplied unless said otherwise; gray levels run from 0 (black)
// to 1 (white).
namespace HXImageFilters {

// A gray-scale mask becomes white masked by alpha: alpha = the gray level.
QImage maskToAlpha(const QImage &mask);

// A loft-shaped height field from a mask's alpha: 0 outside, rising smoothly
// over `radius` pixels inside the edge to 1. Gray-scale heights; alpha is
// opaque wherever the field has a height.
QImage heightFieldFromMask(const QImage &alphaMask, double radius);

// Shades a height field: the surface normal, its slope scaled by `scale`,
// picks the colour of `shading` as a sphere map (the normal's x and y, from
// -1 to 1, span the shading image's width and height). Keeps the field's alpha.
QImage shadedMaterial(const QImage &heightField, const QImage &shading, double scale);

// `image` where `mask` is white, `background` where it is black, blended in
// between (the mask's gray level, or its alpha when it has one).
QImage blendWithMask(const QImage &image, const QImage &background, const QImage &mask);

} // namespace HXImageFilters
