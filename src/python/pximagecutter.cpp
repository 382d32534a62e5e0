// The Python module: thin bindings that check their arguments with the GIL
// held, release it while the library works, and turn masks into arrays.
// Python's headers before Qt's: Qt defines "slots", a member name in Python's.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include "PXPointList.h"
#include "PXPythonArrays.h"
#include "PXPythonCutter.h"
#include "PXPythonErrors.h"
#include "PXPythonHost.h"
#include "PXPythonScissors.h"

#include <chrono>
#include <climits>
#include <cmath>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace py = pybind11;

namespace {

constexpr double myDefaultTimeout = 300;

int timeoutMs(double seconds)
{
    if (!(seconds > 0))
        throw py::value_error("timeout must be a positive number of seconds, got "
            + py::repr(py::float_(seconds)).cast<std::string>());
    return int(std::min(seconds * 1000, double(INT_MAX)));
}

double radiusOf(double radius)
{
    if (!std::isfinite(radius) || !(radius > 0))
        throw py::value_error("radius must be a positive number of pixels, got "
            + py::repr(py::float_(radius)).cast<std::string>());
    return radius;
}

// Asked while a call waits: Ctrl-C in the main thread ends the wait. A
// daemon thread still waiting when the interpreter finalizes must not take
// the GIL again (Python would end the thread by unwinding through the
// bindings); it waits for the process's end, as Python's own daemon threads do.
bool signalled()
{
    while (_Py_IsFinalizing())
        std::this_thread::sleep_for(std::chrono::seconds(1));
    py::gil_scoped_acquire gil;
    return PyErr_CheckSignals() != 0;
}

// A Cutter as Python holds it: the library side and the photo's size.
struct Cutter {
    Cutter(const py::handle& image, bool refine)
    {
        const QImage photo = PXPythonArrays::photo(image, "image");
        size = photo.size();
        py::gil_scoped_release release;
        cutter = std::make_unique<PXPythonCutter>(photo, refine);
    }

    ~Cutter()
    {
        py::gil_scoped_release release;
        cutter.reset();
    }

    py::array_t<std::uint8_t> lasso(const py::handle& points, double timeout)
    {
        const QPainterPath path = PXPointList::closedPolygon(PXPythonArrays::points(points, "lasso", size, 3));
        const int ms = timeoutMs(timeout);
        QImage mask;
        {
            py::gil_scoped_release release;
            mask = cutter->lasso(path, ms, signalled);
        }
        return PXPythonArrays::mask(mask, size);
    }

    void requireCut(const char* call)
    {
        bool valid = false;
        {
            py::gil_scoped_release release;
            valid = cutter->hasCut();
        }
        if (!valid)
            throw py::value_error(std::string(call) + "() needs the regions of a cut: call lasso() first");
    }

    py::array_t<std::uint8_t> click(double x, double y, double timeout)
    {
        const QPointF point = PXPythonArrays::point(py::make_tuple(x, y), "click", size);
        const int ms = timeoutMs(timeout);
        requireCut("click");
        QImage mask;
        try {
            py::gil_scoped_release release;
            mask = cutter->click(point, ms);
        } catch (const std::invalid_argument& error) {
            throw py::value_error("click (" + py::repr(py::float_(x)).cast<std::string>() + ", "
                + py::repr(py::float_(y)).cast<std::string>() + ") " + error.what());
        }
        return PXPythonArrays::mask(mask, size);
    }

    py::array_t<std::uint8_t> stroke(const py::handle& points, double radius, bool object, double timeout,
        bool pixels)
    {
        const char* name = pixels ? "scribble" : "paint";
        const QPainterPath stroke = PXPointList::brushStroke(PXPythonArrays::points(points, name, size, 1),
            radiusOf(radius));
        const int ms = timeoutMs(timeout);
        if (!pixels)
            requireCut(name);
        QImage mask;
        {
            py::gil_scoped_release release;
            mask = pixels ? cutter->scribble(stroke, object, ms, signalled)
                          : cutter->paint(stroke, object, ms, signalled);
        }
        return PXPythonArrays::mask(mask, size);
    }

    py::array_t<std::uint8_t> invert(double timeout)
    {
        const int ms = timeoutMs(timeout);
        requireCut("invert");
        QImage mask;
        {
            py::gil_scoped_release release;
            mask = cutter->invert(ms, signalled);
        }
        return PXPythonArrays::mask(mask, size);
    }

    template <QImage (PXPythonCutter::*step)()>
    py::array_t<std::uint8_t> call()
    {
        QImage mask;
        {
            py::gil_scoped_release release;
            mask = (cutter.get()->*step)();
        }
        return PXPythonArrays::mask(mask, size);
    }

    py::array_t<std::int32_t> regions()
    {
        QImage labels;
        {
            py::gil_scoped_release release;
            labels = cutter->regions();
        }
        return PXPythonArrays::labels(labels, size);
    }

    std::unique_ptr<PXPythonCutter> cutter;
    QSize size;
};

struct Scissors {
    explicit Scissors(const py::handle& image)
    {
        const QImage photo = PXPythonArrays::photo(image, "image");
        size = photo.size();
        py::gil_scoped_release release;
        scissors = std::make_unique<PXPythonScissors>(photo);
    }

    ~Scissors()
    {
        py::gil_scoped_release release;
        scissors.reset();
    }

    py::array_t<std::int32_t> wire(const py::handle& seed, const py::handle& to, double timeout)
    {
        const QPointF from = PXPythonArrays::point(seed, "seed", size);
        const QPointF target = PXPythonArrays::point(to, "to", size);
        const int ms = timeoutMs(timeout);
        QList<QPoint> points;
        {
            py::gil_scoped_release release;
            points = scissors->wire(from, target, ms, signalled);
        }
        return PXPythonArrays::points(points);
    }

    std::unique_ptr<PXPythonScissors> scissors;
    QSize size;
};

py::object cut(const py::handle& image, const py::handle& lasso, bool refine, bool matte, double timeout)
{
    Cutter cutter(image, refine);
    py::array_t<std::uint8_t> mask = cutter.lasso(lasso, timeout);
    if (!matte)
        return std::move(mask);
    QImage cutout;
    {
        py::gil_scoped_release release;
        cutout = cutter.cutter->matte();
    }
    return PXPythonArrays::alpha(cutout, cutter.size);
}

} // namespace

PYBIND11_MODULE(_pximagecutter, module)
{
    module.doc() = "Cuts an object out of a photo given as a NumPy array: a lasso round the object gives a "
                   "mask, which clicks, paint and scribbles refine; the live wire traces edges.";

    py::register_exception_translator([](std::exception_ptr failure) {
        try {
            if (failure)
                std::rethrow_exception(failure);
        } catch (const PXPythonErrors::Timeout& error) {
            PyErr_SetString(PyExc_TimeoutError, error.what());
        } catch (const PXPythonErrors::Interrupted& error) {
            // The signal handler's exception (KeyboardInterrupt) is already set.
            if (!PyErr_Occurred())
                PyErr_SetString(PyExc_KeyboardInterrupt, error.what());
        }
    });

    module.def("cut", &cut, py::arg("image"), py::arg("lasso"), py::arg("refine") = true,
        py::arg("matte") = false, py::arg("timeout") = myDefaultTimeout,
        R"(Cuts the object inside a lasso out of a photo.

image: an HxWx3 (RGB) or HxWx4 (RGBA) uint8 array.
lasso: at least 3 (x, y) points inside the photo, as a sequence or an Nx2
    array; the polygon through them is closed.
refine: True (the default) gives the refined cut, whose outline follows the
    object's edges; False the plain superpixel cut.
matte: True gives the soft alpha matte of the cut instead of the mask: an
    HxW float32 array from 0 to 1, soft where hair, fur or a defocused rim
    mixes object and background.
timeout: seconds to wait before the work is cancelled (TimeoutError).

Returns an HxW uint8 mask, 255 on the object and 0 on the background: the
same mask `pxcut cut` writes for the same photo, lasso and cut mode.
Raises TypeError or ValueError for bad arguments.)");

    py::class_<Cutter>(module, "Cutter",
        R"(One photo being cut, step by step, as a photo application does it.

Start with lasso(); click(), paint(), scribble() and invert() then change
the mask, undo() and redo() step through this cutter's own history. Each
call returns the new mask (HxW uint8, 255 on the object) once the library
has made it. Calls may come from any thread; those on one cutter run one
after another, cutters in different threads run at once.)")
        .def(py::init<const py::handle&, bool>(), py::arg("image"), py::arg("refine") = true,
            "Takes the photo, an HxWx3 (RGB) or HxWx4 (RGBA) uint8 array. refine picks the refined cut for "
            "lassos (the default) or the plain superpixel cut.")
        .def("lasso", &Cutter::lasso, py::arg("points"), py::arg("timeout") = myDefaultTimeout,
            "Cuts the object inside the closed polygon through points (at least 3 (x, y) inside the photo) "
            "and returns its mask. A new lasso replaces the previous cut.")
        .def("click", &Cutter::click, py::arg("x"), py::arg("y"), py::arg("timeout") = myDefaultTimeout,
            "Toggles the region under (x, y) between object and background. The point must lie inside the "
            "lasso (ValueError otherwise).")
        .def("paint",
            [](Cutter& self, const py::handle& points, double radius, bool object, double timeout) {
                return self.stroke(points, radius, object, timeout, false);
            },
            py::arg("points"), py::arg("radius"), py::arg("object") = true, py::arg("timeout") = myDefaultTimeout,
            "Drags a round brush of radius pixels through points: every region it touches becomes object "
            "(object=True) or background.")
        .def("scribble",
            [](Cutter& self, const py::handle& points, double radius, bool object, double timeout) {
                return self.stroke(points, radius, object, timeout, true);
            },
            py::arg("points"), py::arg("radius"), py::arg("object") = true, py::arg("timeout") = myDefaultTimeout,
            "Like paint(), but changes exactly the pixels under the brush, not whole regions.")
        .def("invert", &Cutter::invert, py::arg("timeout") = myDefaultTimeout,
            "Swaps object and background.")
        .def("undo", &Cutter::call<&PXPythonCutter::undo>,
            "Takes back the last lasso, click, stroke or inversion; the mask stays when there is none.")
        .def("redo", &Cutter::call<&PXPythonCutter::redo>, "Does again what undo() took back.")
        .def_property_readonly("mask", &Cutter::call<&PXPythonCutter::mask>,
            "The current mask, HxW uint8, 255 on the object; zeros before the first lasso.")
        .def_property_readonly("regions", &Cutter::regions,
            "The regions of the last lasso as an HxW int32 label image; zeros before the first lasso.")
        .def_property_readonly("shape", [](const Cutter& self) { return py::make_tuple(self.size.height(), self.size.width()); },
            "The photo's (height, width).");

    py::class_<Scissors>(module, "Scissors", "The live wire: paths along the photo's edges between two points.")
        .def(py::init<const py::handle&>(), py::arg("image"),
            "Takes the photo, an HxWx3 (RGB) or HxWx4 (RGBA) uint8 array, at full resolution.")
        .def("wire", &Scissors::wire, py::arg("seed"), py::arg("to"), py::arg("timeout") = myDefaultTimeout,
            "The wire from seed to to, both (x, y) inside the photo, along the strongest edges: an Nx2 int32 "
            "array of (x, y) from seed's pixel to to's, the points `pxcut wire` writes.");

    auto atexit = py::module_::import("atexit");
    atexit.attr("register")(py::cpp_function([] {
        py::gil_scoped_release release;
        PXPythonHost::shutdownIfStarted();
    }));
}
