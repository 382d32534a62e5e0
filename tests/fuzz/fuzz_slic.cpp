// Photo bytes and a lasso into the working image and SLIC.
// Input: width - 1, height - 1, the number of lasso points, 4 bytes per point
// (x and y in quarter pixels from -64), then the photo's ARGB32 bytes.

#include "PXFuzzInput.h"
#include "PXImage.h"
#include "PXSlic.h"

#include <QFileInfo>
#include <QPainterPath>

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size)
{
    PXFuzzInput input(data, size);
    const int width = 1 + int(input.byte());
    const int height = 1 + int(input.byte());
    const QPainterPath lasso = input.lasso();

    PXImage image(input.image(width, height, QImage::Format_ARGB32), QFileInfo());
    PXSlic slic;
    slic.setup(&image, lasso);
    slic.run();
    const QImage labels = slic.superPixelAssignments();
    if (!labels.isNull() && labels.size() != image.size())
        std::abort();
    return 0;
}
