#pragma once

// Per-record pixel sums for the passes that rebuild records from labels.
// Internal header.

#include "PXSuperPixel.h"
#include "PXYCbCr.h"
#include "PXYCbCrPixel.h"

// The sums of one record's pixels, in the wrapping arithmetic of
// PXSuperPixel::addPixel, kept in plain integers for the hot loops.
struct PXSlicPixelSums
{
    quint32 luminance = 0;
    quint32 cb = 0;
    quint32 cr = 0;
    quint32 x = 0;
    quint32 y = 0;
    int count = 0;

    // Pixels [begin, end) of one row that share a label, summed in registers:
    // label runs are long, and adding pixel by pixel into memory would make
    // every addition wait for the previous one.
    void addRun(const PXYCbCrPixel* pixels, int begin, int end, int row)
    {
        quint32 runLuminance = 0;
        quint32 runCb = 0;
        quint32 runCr = 0;
        for (int column = begin; column < end; ++column) {
            runLuminance += pixels[column].luminance;
            runCb += pixels[column].cb;
            runCr += pixels[column].cr;
        }
        const qint64 length = end - begin;
        luminance += runLuminance;
        cb += runCb;
        cr += runCr;
        x += quint32((qint64(begin) + end - 1) * length / 2);
        y += quint32(qint64(row) * length);
        count += int(length);
    }

    void addTo(PXSuperPixel& record) const
    {
        if (count > 0)
            record.addPixels(PXYCbCr(luminance, cb, cr), int(x), int(y), count);
    }
};
