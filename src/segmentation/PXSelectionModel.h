#pragma once

// Internal header: not installed.

#include "PXImage.h"
#include "PXRefinedCut.h"
#include "PXSuperPixel.h"

#include <QColor>
#include <QFileInfo>
#include <QHash>
#include <QImage>
#include <QList>
#include <QPainterPath>
#include <QPoint>
#include <QPointF>
#include <QRect>
#include <QSet>

#include <functional>
#include <memory>
#include <utility>

class PXMementoSegmentation;
class PXSelectionModelYCbCr;

/**
 * What the requests of a PXImageSegmentation do to the selection: the photo,
 * the label image and each label's pixels, the object and background sets,
 * the mask and the lasso paths, with one function per gesture.
 *
 * A plain value: no locks, no threads, no signals. Every member is an
 * implicitly shared Qt value, so a copy is cheap and can be read on another
 * thread while the original changes. Whoever holds the model decides which
 * thread may touch it (PXImageSegmentation guards its one with a lock).
 *
 * Labels at or beyond the pixel lists' size have no pixels; they still change
 * sides. Points outside the photo are clamped by the point queries.
 */
class PXSelectionModel
{
public:
    /** What a PXInitialSegmentationWorker delivers for one lasso. */
    struct Segmentation {
        QImage labels;
        QList<PXSuperPixel> superpixels;
        QList<QList<QPoint>> pointsOfSuperpixels;
        QHash<int, QSet<int>> neighbours;
        QPainterPath expandedPath;
    };

    /** @p image as the working photo: QImage::Format_ARGB32 unless null. */
    static QImage workingImage(const QImage& image);
    /** @p path, or an empty path if a coordinate is NaN or beyond 2^24. */
    static QPainterPath usablePath(const QPainterPath& path);
    /** QRectF::toRect() with the coordinates first kept within 2^24. */
    static QRect roundedRect(const QRectF& rect);

    // Photo and segmentation.

    /** Takes @p photo as it stands. */
    void setPhoto(const QImage& photo, const QFileInfo& fileInfo);
    void setPhoto(const QImage& photo);
    QImage photo() const { return m_photo; }
    QFileInfo fileInfo() const { return m_fileInfo; }
    /**
     * The photo as a working image. Its YCbCr image is converted by the
     * first call and shared by every copy of this model.
     */
    PXImage analysedPhoto() const;
    /** A new lasso: forgets the pixel lists and both sets. */
    void startLasso(const QPainterPath& lasso);
    void setLassoPath(const QPainterPath& lasso) { m_lassoPath = lasso; }
    /** Installs a worker's results; the labels count as not saved. */
    void takeSegmentation(const Segmentation& segmentation);
    /**
     * Forgets the worker's results (records, neighbours, pixel lists, the
     * expanded path) and the clicked label; drops the mask without a photo.
     */
    void forgetSegmentation();
    /** Whether there are pixel lists, i.e. refinement is possible. */
    bool isValid() const { return !m_pointsOfSuperpixels.isEmpty(); }

    // The initial cut, step by step.

    /** Both sets empty; the mask wholly in the mask colour. */
    void beginCut();
    /** The expanded lasso filled 0xFFFFFFFF on black, the photo's size. */
    QImage lassoImage() const;
    /** The expanded lasso's bounding rectangle, rounded. */
    QRect expandedRect() const;
    /**
     * Labels > 0 with a pixel inside (first) and outside (second) the lasso
     * image, visiting @p rect without its last row and column.
     */
    std::pair<QSet<int>, QSet<int>> separate(const QImage& lassoImage, const QRect& rect) const;
    /**
     * The outside labels become the background, the only-inside ones the
     * object; returns the latter.
     */
    QSet<int> assignForeground(const std::pair<QSet<int>, QSet<int>>& insideOutside);
    /**
     * The object labels whose colour the background colour model judges
     * background; changes nothing. @p onSetUp runs once the model is built.
     */
    QSet<int> backgroundByColour(const std::function<void()>& onSetUp) const;
    /** Moves @p labels to the background, painting them. */
    void moveToBackground(const QSet<int>& labels);
    /**
     * The neighbourhood vote: object labels of which at least half the
     * neighbours are background or in @p possibleBackground move to the
     * background. Returns 0 and the moved labels.
     */
    QSet<int> confirmPossibleBackground(const QSet<int>& possibleBackground);

    // Gestures.

    /** Puts @p label on one side and paints its pixels into the mask. */
    void setSide(int label, bool isForeground);
    /** Toggles the label under @p position (rounded, clamped); returns it. */
    int click(const QPointF& position);
    /** Moves every label that @p path touches to one side. */
    void paintSelection(const QPainterPath& path, bool isForeground);
    /** Clears @p path in the mask or fills it with the mask colour; sets stay. */
    void scribble(const QPainterPath& path, bool isForeground);
    /** A copy of the mask with @p clusters painted; never its top-left pixel. */
    QImage hoverPreview(const QSet<int>& clusters, bool isForeground) const;
    /** Inverts the mask and swaps the sets. */
    void invert();
    /** Stores @p colour; false if its rgb() is the current one's. */
    bool setMaskColor(const QColor& colour);
    /** Repaints the opaque mask pixels in the mask colour. */
    void recolour();

    // Mementos.

    /** A snapshot owned by the caller; with labels it marks them saved. */
    PXMementoSegmentation* createMemento(bool withLabels);
    /** Restores @p memento; one without labels keeps the current ones. */
    void setMemento(const PXMementoSegmentation& memento);

    // Queries.

    QImage mask() const { return m_mask; }
    QColor maskColor() const { return m_maskColor; }
    QSet<int> foreground() const { return m_foreground; }
    QSet<int> background() const { return m_background; }
    QPainterPath lastPath() const { return m_lastPath; }
    int clickedSuperpixel() const { return m_clickedSuperpixel; }
    bool labelsSaved() const { return m_labelsSaved; }
    /** @p path filled 0xFFFFFFFF on black, the mask's size. */
    QImage pathImage(const QPainterPath& path) const;
    /** The labels > 0 under a round brush (radius 1: the label at the centre). */
    QSet<int> labelsUnderBrush(const QPoint& centre, int radius) const;
    /** The pixels of the label at @p point. */
    QList<QPoint> pointsAt(const QPointF& point) const;
    /** The label at @p point; 0 without labels. */
    int labelAt(const QPoint& point) const;
    bool expandedPathContains(const QPainterPath& path) const;
    /** Opaque white where two of a pixel's eight neighbours carry another label. */
    QImage contour() const;

    // Refined cut.

    /**
     * While on, gestures are answered by the refined cut: the controller
     * marks them with markStroke() or markClick() and solves strokeCut()
     * again. Off by default; a new lasso sets it, invert() clears it.
     */
    void setRefining(bool refining) { m_refining = refining; }
    bool refining() const { return m_refining; }
    /** A refined cut set up with the photo, grown lasso, regions, current object and marks. */
    PXRefinedCut refinedCut() const;
    /** Marks the pixels of @p path as object or background for the refined cut. */
    void markStroke(const QPainterPath& path, bool isForeground);
    /** Marks a dot at @p position on the side opposite to the mask's there. */
    void markClick(const QPointF& position);
    /** Number of strokes marked so far; applyStrokeSelection() compares it. */
    int strokes() const { return m_strokes; }
    /**
     * The refined cut that answers a stroke: what the last refined cut of
     * these regions prepared, with every mark so far, starting from the
     * current mask.
     */
    PXRefinedCut strokeCut() const;
    /** Keeps @p cut (run on @p labels) for strokeCut(). */
    void keepRefinedCut(const PXRefinedCut& cut, const QImage& labels);
    /**
     * applyRefinedSelection() for the run of a strokeCut() taken when
     * strokes() was @p strokes; false, changing nothing, when more strokes
     * came meanwhile.
     */
    bool applyStrokeSelection(const QImage& selection, const QImage& labels, int strokes);
    /**
     * Makes @p selection (the run of a refinedCut() whose labels were
     * @p labels) the mask; each region joins the side holding most of its
     * pixels. Ignored when the labels changed meanwhile.
     */
    void applyRefinedSelection(const QImage& selection, const QImage& labels);
    QImage labels() const { return m_labels; }

private:
    QImage& marks();
    // 255 where the mask shows the object.
    QImage maskSelection() const;
    QImage m_photo;
    // Made anew with every photo; shared by the copies.
    std::shared_ptr<PXSelectionModelYCbCr> m_photoYCbCr;
    QFileInfo m_fileInfo;
    QImage m_labels;
    QList<PXSuperPixel> m_superpixels;
    QList<QList<QPoint>> m_pointsOfSuperpixels;
    QHash<int, QSet<int>> m_neighbours;
    QSet<int> m_foreground;
    QSet<int> m_background;
    QImage m_mask;
    QColor m_maskColor;
    QPainterPath m_lassoPath;
    QPainterPath m_expandedPath;
    QPainterPath m_lastPath;
    int m_clickedSuperpixel = 0;
    bool m_labelsSaved = false;
    bool m_refining = false;
    // The user's strokes as PXRefinedCut marks, kept while refining.
    QImage m_marks;
    int m_strokes = 0;
    // The last refined cut and the cacheKey() of the labels it ran on.
    std::shared_ptr<const PXRefinedCut> m_keptCut;
    qint64 m_keptCutLabels = 0;
    // The last refined selection and the cacheKey() of the mask it made:
    // while the mask is unchanged, a stroke starts from it instead of
    // reading the whole mask back.
    QImage m_refinedSelection;
    qint64 m_refinedSelectionMask = 0;
};
