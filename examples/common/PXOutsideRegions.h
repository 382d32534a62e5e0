#pragma once

#include <QImage>
#include <QPainterPath>

#include <vector>

class PXImageSegmentation;

/**
 * The regions of a controller's last cut that reach outside its grown lasso.
 *
 * In the plain cut a paint stroke moves every region its brush touches, and
 * what the lasso left out is such a region: a stroke into the object there
 * selects all of it. The hosts ask touchedBy() before they send a plain-mode
 * paint stroke into the object and ignore the stroke when it says yes.
 *
 * Host's thread, on an idle controller or one busy with strokes; the
 * controller is read through its public queries. The regions are read again
 * whenever the controller's labels changed (a new lasso, an undo across one).
 */
class PXOutsideRegions
{
public:
    /**
     * Whether @p stroke, sent as a paint selection, would move a region of
     * @p segmentation that has a pixel outside the grown lasso. Along the
     * stroke's edge it errs by up to a pixel towards yes. False without a cut.
     */
    bool touchedBy(PXImageSegmentation& segmentation, const QPainterPath& stroke);

private:
    void read(PXImageSegmentation& segmentation, const QImage& labels);

    qint64 m_labelsKey = 0;
    // Indexed by label: whether that region has a pixel outside the grown lasso.
    std::vector<bool> m_reachesOutside;
};
