#pragma once

// Per-record pixel sums for the passes that rebuild records from labels.
// Internal header.

#include "PXSuperPixel.h"
#include "PXYCbCr.h"
#include "PXYCbCrPixel.h"

#include <algorithm>
#include <cstring>

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
    // every addition wait for the previous one. Two pixels at a time share
    // one 64-bit word in 16-bit lanes (Cr, Y, Cr, Y and Cb, alpha, Cb,
    // alpha), 256 pixels at most before the lanes are taken apart.
    void addRun(const PXYCbCrPixel* pixels, int begin, int end, int row)
    {
        constexpr quint64 evenBytes = 0x00FF00FF00FF00FFull;
        quint32 runLuminance = 0;
        quint32 runCb = 0;
        quint32 runCr = 0;
        for (int column = begin; column < end;) {
            const int stop = std::min(end, column + 256);
            quint64 crAndLuminance = 0;
            quint64 cbAndAlpha = 0;
            for (; column + 1 < stop; column += 2) {
                quint64 two;
                std::memcpy(&two, pixels + column, sizeof two);
                crAndLuminance += two & evenBytes;
                cbAndAlpha += (two >> 8) & evenBytes;
            }
            if (column < stop) {
                quint32 one;
                std::memcpy(&one, pixels + column, sizeof one);
                crAndLuminance += one & evenBytes;
                cbAndAlpha += (one >> 8) & evenBytes;
                ++column;
            }
            runCr += quint32(crAndLuminance & 0xFFFFu) + quint32((crAndLuminance >> 32) & 0xFFFFu);
            runLuminance += quint32((crAndLuminance >> 16) & 0xFFFFu) + quint32(crAndLuminance >> 48);
            runCb += quint32(cbAndAlpha & 0xFFFFu) + quint32((cbAndAlpha >> 32) & 0xFFFFu);
        }
        const qint64 length = end - begin;
        luminance += runLuminance;
        cb += runCb;
        cr += runCr;
        x += quint32((qint64(begin) + end - 1) * length / 2);
        y += quint32(qint64(row) * length);
        count += int(length);
    }

    void add(const PXSlicPixelSums& other)
    {
        luminance += other.luminance;
        cb += other.cb;
        cr += other.cr;
        x += other.x;
        y += other.y;
        count += other.count;
    }

    void addTo(PXSuperPixel& record) const
    {
        if (count > 0)
            record.addPixels(PXYCbCr(luminance, cb, cr), int(x), int(y), count);
    }
};
