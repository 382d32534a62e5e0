#pragma once

// Composites with a known object for judging cuts: a shipped photo as the
// background, a procedurally textured object pasted on it with a soft edge,
// and lassos drawn at a known distance around the object.

#include <QImage>
#include <QList>
#include <QPainterPath>
#include <QString>

struct PXQualityScene {
    QString name;
    QImage photo; // Format_ARGB32
    QImage truth; // Format_Grayscale8, 255 on the object
    QPainterPath outline; // the object's outer outline, holes filled
};

/** A scene and the lasso a user drew on it. */
struct PXQualityCase {
    QString name;
    QImage photo; // Format_ARGB32
    QImage truth; // Format_Grayscale8, 255 on the object
    QPainterPath lasso;
};

/** The object shapes: convex, thin arms, a hole, a handle. */
QList<PXQualityScene> qualityScenes(const QSize& size);

/** A lasso @p distance pixels outside the outline (negative: cuts into it). */
QPainterPath lassoAround(const PXQualityScene& scene, int distance);
/** A lasso 5 pixels outside that cuts 6 pixels into the object's right side. */
QPainterPath lassoCuttingIn(const PXQualityScene& scene);

/** Intersection over union of two selections (non-zero bytes). */
double intersectionOverUnion(const QImage& truth, const QImage& selection);
/** F-measure of the outlines, a pixel matching within @p tolerance pixels. */
double boundaryF(const QImage& truth, const QImage& selection, int tolerance);
