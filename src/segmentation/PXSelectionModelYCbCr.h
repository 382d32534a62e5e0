#pragma once

// Internal header: not installed.

#include "PXImage.h"

#include <QFileInfo>
#include <QImage>

#include <mutex>

/**
 * The YCbCr working image of one photo, converted by the first caller that
 * needs it and then kept: the copies of a PXSelectionModel share one, so
 * every lasso after the first on the same photo skips the conversion.
 * Thread-safe.
 */
class PXSelectionModelYCbCr
{
public:
    explicit PXSelectionModelYCbCr(const QImage& photo)
        : m_photo(photo)
    {
    }

    QImage image(const QFileInfo& fileInfo)
    {
        std::call_once(m_converted, [&]() { m_ycbcr = PXImage(m_photo, fileInfo).imageYCbCr(); });
        return m_ycbcr;
    }

private:
    const QImage m_photo;
    std::once_flag m_converted;
    QImage m_ycbcr;
};
