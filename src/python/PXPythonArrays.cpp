#include "PXPythonArrays.h"

#include <cmath>
#include <string>

namespace py = pybind11;

namespace PXPythonArrays {

namespace {

std::string shapeText(const py::array& array)
{
    std::string text = "(";
    for (py::ssize_t i = 0; i < array.ndim(); ++i)
        text += (i ? ", " : "") + std::to_string(array.shape(i));
    return text + (array.ndim() == 1 ? ",)" : ")");
}

std::string typeName(const py::handle& object)
{
    return py::str(py::type::handle_of(object).attr("__name__")).cast<std::string>();
}

std::string pointText(const QPointF& p)
{
    return "(" + py::repr(py::float_(p.x())).cast<std::string>() + ", "
        + py::repr(py::float_(p.y())).cast<std::string>() + ")";
}

// Coordinates as float64, whatever sequence or array they came in.
py::array_t<double> coordinates(const py::handle& object, const char* name, const char* expected)
{
    if (object.is_none() || py::isinstance<py::str>(object) || py::isinstance<py::bytes>(object))
        throw py::type_error(std::string(name) + " must be " + expected + ", got " + typeName(object));
    try {
        return py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(
            py::module_::import("numpy").attr("asarray")(object, "float64"));
    } catch (const py::error_already_set& error) {
        throw py::type_error(std::string(name) + " must be " + expected + " (" + error.what() + ")");
    }
}

void checkInside(const QPointF& p, const std::string& which, const QSize& size)
{
    if (!std::isfinite(p.x()) || !std::isfinite(p.y()))
        throw py::value_error(which + " " + pointText(p) + " is not a finite point");
    if (p.x() < 0 || p.y() < 0 || p.x() >= size.width() || p.y() >= size.height())
        throw py::value_error(which + " " + pointText(p) + " lies outside the " + std::to_string(size.width())
            + "x" + std::to_string(size.height()) + " image");
}

} // namespace

QImage photo(const py::handle& image, const char* name)
{
    if (!py::isinstance<py::array>(image))
        throw py::type_error(std::string(name) + " must be a numpy array, got " + typeName(image));
    const auto array = py::reinterpret_borrow<py::array>(image);
    if (!array.dtype().is(py::dtype::of<std::uint8_t>()))
        throw py::type_error(std::string(name) + " must have dtype uint8, got "
            + py::str(array.dtype()).cast<std::string>());
    if (array.ndim() != 3 || (array.shape(2) != 3 && array.shape(2) != 4))
        throw py::value_error(std::string(name) + " must have shape HxWx3 (RGB) or HxWx4 (RGBA), got "
            + shapeText(array));
    const py::ssize_t height = array.shape(0);
    const py::ssize_t width = array.shape(1);
    const py::ssize_t channels = array.shape(2);
    // QImage's limits: sides below 2^15 at most, bytes below 2^31.
    if (width < 1 || height < 1 || width > 32767 || height > 32767 || width * height > (py::ssize_t(1) << 29))
        throw py::value_error(std::string(name) + " has an unusable size " + shapeText(array));
    const auto pixels = py::array_t<std::uint8_t, py::array::c_style>::ensure(array);
    const std::uint8_t* data = pixels.data();
    QImage result(int(width), int(height), QImage::Format_ARGB32);
    for (py::ssize_t y = 0; y < height; ++y) {
        QRgb* line = reinterpret_cast<QRgb*>(result.scanLine(int(y)));
        const std::uint8_t* in = data + y * width * channels;
        for (py::ssize_t x = 0; x < width; ++x, in += channels)
            line[x] = qRgba(in[0], in[1], in[2], channels == 4 ? in[3] : 255);
    }
    return result;
}

QList<QPointF> points(const py::handle& object, const char* name, const QSize& size, int minimum)
{
    const char* expected = "a sequence of (x, y) pairs or an Nx2 array";
    const py::array_t<double> array = coordinates(object, name, expected);
    const bool empty = array.ndim() == 1 && array.shape(0) == 0;
    if (!empty && (array.ndim() != 2 || array.shape(1) != 2))
        throw py::value_error(std::string(name) + " must be " + expected + ", got shape " + shapeText(array));
    const py::ssize_t count = empty ? 0 : array.shape(0);
    if (count < minimum)
        throw py::value_error(std::string(name) + " needs at least " + std::to_string(minimum) + " point"
            + (minimum == 1 ? "" : "s") + ", got " + std::to_string(count));
    QList<QPointF> result;
    result.reserve(count);
    const double* data = array.data();
    for (py::ssize_t i = 0; i < count; ++i) {
        result.append(QPointF(data[2 * i], data[2 * i + 1]));
        checkInside(result.last(), std::string(name) + " point " + std::to_string(i), size);
    }
    return result;
}

QPointF point(const py::handle& object, const char* name, const QSize& size)
{
    const py::array_t<double> array = coordinates(object, name, "an (x, y) pair");
    if (array.ndim() != 1 || array.shape(0) != 2)
        throw py::value_error(std::string(name) + " must be an (x, y) pair, got shape " + shapeText(array));
    const QPointF result(array.data()[0], array.data()[1]);
    checkInside(result, name, size);
    return result;
}

py::array_t<std::uint8_t> mask(const QImage& mask, const QSize& size)
{
    py::array_t<std::uint8_t> result({ py::ssize_t(size.height()), py::ssize_t(size.width()) });
    std::uint8_t* out = result.mutable_data();
    if (mask.isNull() || mask.size() != size) {
        std::fill(out, out + size.width() * size.height(), std::uint8_t(0));
        return result;
    }
    const QImage argb = mask.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < size.height(); ++y) {
        const QRgb* line = reinterpret_cast<const QRgb*>(argb.constScanLine(y));
        for (int x = 0; x < size.width(); ++x)
            *out++ = std::uint8_t(255 - qAlpha(line[x]));
    }
    return result;
}

py::array_t<float> alpha(const QImage& cutout, const QSize& size)
{
    py::array_t<float> result({ py::ssize_t(size.height()), py::ssize_t(size.width()) });
    float* out = result.mutable_data();
    if (cutout.isNull() || cutout.size() != size) {
        std::fill(out, out + size.width() * size.height(), 0.0f);
        return result;
    }
    const QImage argb = cutout.convertToFormat(QImage::Format_ARGB32);
    for (int y = 0; y < size.height(); ++y) {
        const QRgb* line = reinterpret_cast<const QRgb*>(argb.constScanLine(y));
        for (int x = 0; x < size.width(); ++x)
            *out++ = float(qAlpha(line[x])) / 255.0f;
    }
    return result;
}

py::array_t<std::int32_t> labels(const QImage& labels, const QSize& size)
{
    py::array_t<std::int32_t> result({ py::ssize_t(size.height()), py::ssize_t(size.width()) });
    std::int32_t* out = result.mutable_data();
    if (labels.isNull() || labels.size() != size) {
        std::fill(out, out + size.width() * size.height(), 0);
        return result;
    }
    for (int y = 0; y < size.height(); ++y) {
        const QRgb* line = reinterpret_cast<const QRgb*>(labels.constScanLine(y));
        for (int x = 0; x < size.width(); ++x)
            *out++ = std::int32_t(line[x]);
    }
    return result;
}

py::array_t<std::int32_t> points(const QList<QPoint>& points)
{
    py::array_t<std::int32_t> result({ py::ssize_t(points.size()), py::ssize_t(2) });
    std::int32_t* out = result.mutable_data();
    for (const QPoint& p : points) {
        *out++ = p.x();
        *out++ = p.y();
    }
    return result;
}

} // namespace PXPythonArrays
