#include "PXIntRange.h"

#include "PXPlatformIndependent.h"

#include <QImage>

PXIntRange::PXIntRange(int first, int last)
    : PXRange<int>(first, last)
{
}

PXIntRange PXIntRange::rowsOfImage(const QImage& image)
{
    return PXIntRange(0, image.height() - 1);
}

PXIntRange PXIntRange::columnsOfImage(const QImage& image)
{
    return PXIntRange(0, image.width() - 1);
}

int PXIntRange::countElements() const
{
    return isValid() ? last() - first() + 1 : 0;
}

int PXIntRange::lastIndexEvenIfUnvalid() const
{
    return isValid() ? last() + 1 : first();
}

QList<PXIntRange> PXIntRange::splitEvenlyForCpuCores() const
{
    QList<PXIntRange> blocks;
    const int count = countElements();
    if (count == 0)
        return blocks;
    const int parts = qMin(count, qMax(1, PXPlatformIndependent::instance()->numberOfCores()));
    const int base = count / parts;
    const int remainder = count % parts;
    blocks.reserve(parts);
    int start = first();
    for (int i = 0; i < parts; ++i) {
        const int length = base + (i < remainder ? 1 : 0);
        blocks.append(PXIntRange(start, start + length - 1));
        start += length;
    }
    return blocks;
}
