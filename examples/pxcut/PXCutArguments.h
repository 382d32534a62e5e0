#pragma once

#include <QColor>
#include <QList>
#include <QPointF>
#include <QString>
#include <QStringList>

class ArgumentReader;

/** One refinement step of `pxcut cut`, applied in command-line order. */
struct PXCutStep
{
    enum Kind { Click, Paint, Scribble };

    Kind kind = Click;
    /** Paint and scribble: add to the object (fg) or to the background (bg). */
    bool foreground = true;
    /** Paint and scribble: brush radius in photo pixels. */
    qreal radius = 0;
    /** One point for a click, the brush's path for paint and scribble. */
    QList<QPointF> points;
    /** The option as typed, for messages ("--click", "--paint", "--scribble"). */
    QString option;
};

/**
 * The command line of pxcut:
 *
 *   pxcut cut [PHOTO] [--lasso "x,y x,y ..." | --lasso-file FILE] [--click x,y]...
 *             [--paint fg|bg RADIUS "x,y ..."]... [--scribble fg|bg RADIUS "x,y ..."]...
 *             [--invert] [--mask-color COLOUR] [--smooth RADIUS] [--feather RADIUS | --matte]
 *             [--mask-in FILE] [--plain | --refine] [--compare] [--out DIR] [--json]
 *   pxcut wire [PHOTO] --seed x,y --to x,y [--seed x,y --to x,y]... [--out DIR] [--json]
 *
 * parse() checks the syntax only (options, numbers, points); the lasso file
 * is read and the points are checked against the photo once it is loaded.
 */
class PXCutArguments
{
public:
    enum Command { Cut, Wire, Help };

    /**
     * Parses @p arguments (without the program name). On failure returns false
     * with @p error set; nothing else is then meaningful.
     */
    bool parse(const QStringList& arguments, QString* error);

    /** The usage text printed for --help and after command-line errors. */
    static QString usage();

    Command command = Help;
    /** Empty: the shipped sample photo. */
    QString photo;
    QString outputDirectory = QStringLiteral("out");

    /** Cut: the lasso of --lasso in photo pixels. */
    QList<QPointF> lasso;
    /** "--lasso" when that option was given, for messages. */
    QString lassoSource;
    /** Cut: the file of --lasso-file; read by the caller, as it is an input like the photo. */
    QString lassoFile;
    QList<PXCutStep> steps;
    bool invert = false;
    /** Invalid: the library's default mask colour. */
    QColor maskColour;
    /** 0: no smoothing. */
    int smoothRadius = 0;
    /**
     * Above this radius the library's one-bit smooth mask breaks down: the
     * blur's margin shifts the picture (a frame along the top row) and large
     * radii fill the whole mask, slowly.
     */
    static constexpr int myMaximalSmoothRadius = 10;
    /** 0: a hard edge; otherwise the cut-out's soft edge in photo pixels. */
    qreal featherRadius = 0;
    /** Cut: the cut-out's edge from the library's soft matte at the photo's size; writes matte.png. */
    bool matte = false;
    /** Cut: a saved mask (white or transparent = object) to start from instead of a lasso. */
    QString maskIn;
    /** Print the summary as one JSON object on stdout. */
    bool json = false;
    /**
     * Cut: the refined cut (pxcut's default), or with --plain the plain cut,
     * the library's own default.
     */
    bool refine = true;
    /** Cut: also write compare.png, the plain and the refined first cut side by side. */
    bool compare = false;

    /** Wire: seeds and targets, pairwise. */
    QList<QPointF> seeds;
    QList<QPointF> targets;

private:
    bool parseCut(const QStringList& arguments, QString* error);
    bool parseWire(const QStringList& arguments, QString* error);
    bool takeOutputDirectory(ArgumentReader& reader, QString* error);
    /** Anything that is not an option is the photo, given once. */
    bool takePhoto(const QString& command, const QString& argument, QString* error);
};
