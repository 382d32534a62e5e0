#pragma once

#include "PXHistogram3D.h"
#include "PXSuperPixel.h"
#include "pximagecutter_export.h"

#include <QImage>
#include <QList>
#include <QMetaType>
#include <QSet>

class PXImage;

/**
 * Tells which of a set of clusters look like background by their mean colour.
 *
 * Two colour histograms of the photo are counted, one over the pixels a mask
 * marks (alpha >= 1) and one over those it leaves unmarked (alpha 0); a
 * cluster whose mean colour's bin holds more marked than unmarked pixels is
 * returned. Call setup(), setSuperPixelInformations(), extractBackground().
 * The working image is not owned. Not thread-safe; the histograms are counted
 * in parallel on the global pool.
 */
class PXIMAGECUTTER_EXPORT PXBackgroundExtractor
{
public:
    PXBackgroundExtractor() = default;
    virtual ~PXBackgroundExtractor();

    PXBackgroundExtractor(const PXBackgroundExtractor&) = default;
    PXBackgroundExtractor& operator=(const PXBackgroundExtractor&) = default;

    void setup(PXImage* image);
    /** The cluster records, indexed by label. */
    void setSuperPixelInformations(const QList<PXSuperPixel>& superpixels);

    /**
     * The labels of @p candidates whose mean colour is more frequent among
     * the pixels @p mask marks than among those it leaves unmarked. Labels
     * without a record are never returned.
     */
    QSet<int> extractBackground(const QSet<int>& candidates, const QImage& mask);

    /** Counts @p histogram; the function mapped over both histograms. */
    static void buildHistogram(PXHistogram3D& histogram);

private:
    PXImage* m_image = nullptr;
    QList<PXSuperPixel> m_superpixels;
};

Q_DECLARE_METATYPE(PXBackgroundExtractor)
