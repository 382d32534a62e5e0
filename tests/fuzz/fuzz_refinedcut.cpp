// The refined cut from fuzzed bytes: photo, lasso, labels, strokes, a start
// selection and a cancellation at a fuzzed step.
// Input: width - 1, height - 1, the number of lasso points, 4 bytes per
// point (x and y in quarter pixels from -64), the number of strokes, 5 bytes
// per stroke (x, y, radius, kind: 0 none, 1 object, 2 background, other
// values as they come; a byte whose low bit says whether a start selection
// is drawn from the stroke), the step to cancel at (0: never), then the
// photo's ARGB32 bytes, which also serve as labels.

#include "PXFuzzInput.h"
#include "PXRefinedCut.h"

#include <QPainter>
#include <QPainterPath>

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size)
{
    PXFuzzInput input(data, size);
    const int width = 1 + int(input.byte());
    const int height = 1 + int(input.byte());
    const QPainterPath lasso = input.lasso();

    QImage marks(width, height, QImage::Format_Grayscale8);
    marks.fill(0);
    QImage start;
    {
        QPainter painter(&marks);
        for (unsigned count = input.byte() % 8; count > 0 && input.has(5); --count) {
            const QPointF centre(input.byte() - 16.0, input.byte() - 16.0);
            const double radius = input.byte() % 32;
            const int kind = int(input.byte());
            painter.setBrush(QColor(kind, kind, kind));
            painter.setPen(Qt::NoPen);
            painter.drawEllipse(centre, radius, radius);
            if (input.byte() & 1) {
                start = QImage(width, height, QImage::Format_Grayscale8);
                start.fill(0);
                QPainter selection(&start);
                selection.fillPath(lasso, Qt::white);
                selection.setBrush(Qt::black);
                selection.drawEllipse(centre, radius, radius);
            }
        }
    }
    const unsigned cancelAt = input.byte() % 8;

    const QImage photo = input.image(width, height, QImage::Format_ARGB32);
    PXRefinedCut cut;
    cut.setPhoto(photo);
    cut.setLasso(lasso);
    cut.setRegions(photo.convertToFormat(QImage::Format_ARGB32), {1, 2, 3});
    cut.setMarks(marks);
    cut.setStartSelection(start);
    unsigned steps = 0;
    cut.setCancelFunction([&steps, cancelAt]() { return ++steps == cancelAt; });
    const QImage selection = cut.run();
    if (!selection.isNull() && (selection.size() != photo.size() || selection.format() != QImage::Format_Grayscale8))
        std::abort();
    // What no lasso may hold never joins the object.
    const QRect reach = lasso.boundingRect().toAlignedRect().adjusted(-1, -1, 1, 1);
    for (int y = 0; y < selection.height(); ++y)
        for (int x = 0; x < selection.width(); ++x)
            if (selection.constScanLine(y)[x] && !reach.contains(x, y))
                std::abort();
    return 0;
}
