#pragma once

// Python's headers before Qt's: Qt defines "slots", a member name in Python's.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <QImage>
#include <QList>
#include <QPoint>
#include <QPointF>
#include <QSize>

/**
 * NumPy arrays and Python sequences to and from the library's Qt types.
 * Called with the GIL held. Bad input throws pybind11::type_error or
 * pybind11::value_error whose message names @p name, the argument.
 */
namespace PXPythonArrays {

/** An HxWx3 (RGB) or HxWx4 (RGBA) uint8 array as a QImage::Format_ARGB32 photo. */
QImage photo(const pybind11::handle& image, const char* name);

/**
 * A sequence of (x, y) pairs or an Nx2 array as points, each inside @p size
 * (pixels [0, width) x [0, height)); at least @p minimum of them.
 */
QList<QPointF> points(const pybind11::handle& points, const char* name, const QSize& size, int minimum);

/** One (x, y) inside @p size. */
QPointF point(const pybind11::handle& point, const char* name, const QSize& size);

/** The library's mask as an HxW uint8 array, 255 on the object; zeros of @p size for a null mask. */
pybind11::array_t<std::uint8_t> mask(const QImage& mask, const QSize& size);

/** The alpha of a matte's cut-out as an HxW float32 array, 1 on the object; zeros for a null image. */
pybind11::array_t<float> alpha(const QImage& cutout, const QSize& size);

/** A label image (one signed 32-bit label per pixel) as an HxW int32 array. */
pybind11::array_t<std::int32_t> labels(const QImage& labels, const QSize& size);

/** Points as an Nx2 int32 array of (x, y). */
pybind11::array_t<std::int32_t> points(const QList<QPoint>& points);

} // namespace PXPythonArrays
