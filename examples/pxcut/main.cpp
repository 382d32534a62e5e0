// pxcut: cuts an object out of a photo from the command line, the way a photo
// application drives the library: scale the photo, send a lasso, wait for the
// mask, refine, and write the results. `pxcut wire` traces live wires.
//
// Run `pxcut --help` for the command line.
#include "PXCutArguments.h"
#include "PXFastPng.h"
#include "PXHostImages.h"
#include "PXHostPhoto.h"
#include "PXOutsideRegions.h"
#include "PXPointList.h"
#include "PXSegmentationQueries.h"
#include "PXSelectionMask.h"

#include <PXImageCutterSettings.h>
#include <PXImageSegmentation.h>
#include <PXIntelligentScissors.h>
#include <PXMementoSegmentation.h>

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPainter>
#include <QRegion>
#include <QThread>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentMap>
#include <QtConcurrent/QtConcurrentRun>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include <unistd.h>

namespace {

// Generous: a large photo on a slow machine under a sanitizer still finishes
// well within it, and a library fault ends with a message instead of a hang.
constexpr int myStepTimeoutMs = 300000;

enum ExitStatus { Success = 0, InputError = 1, UsageError = 2 };

int fail(const QString& message, int status = InputError)
{
    std::fprintf(stderr, "pxcut: %s\n", qPrintable(message));
    return status;
}

QString photosFolder()
{
    return QStringLiteral(PX_PHOTOS_DIR);
}

// A one-line bar on stderr. On a terminal it redraws in place; otherwise it
// writes a line per tenth, so logs stay short.
class ProgressBar
{
public:
    explicit ProgressBar(const char* label)
        : m_label(label)
        , m_terminal(isatty(fileno(stderr)))
    {
    }

    ~ProgressBar() { finish(); }

    void show(double fraction)
    {
        fraction = std::clamp(fraction, 0.0, 1.0);
        const int percent = int(fraction * 100);
        if (percent == m_percent || (!m_terminal && percent / 10 == m_percent / 10 && m_percent >= 0))
            return;
        m_percent = percent;
        constexpr int width = 30;
        const int filled = int(fraction * width);
        std::fprintf(stderr, "%s%-8s [%s%s] %3d%%%s", m_terminal ? "\r" : "", m_label,
            std::string(filled, '#').c_str(), std::string(width - filled, '.').c_str(), percent,
            m_terminal ? "" : "\n");
        std::fflush(stderr);
    }

    void finish()
    {
        if (m_terminal && m_percent >= 0)
            std::fputc('\n', stderr);
        m_percent = -1;
    }

private:
    const char* m_label;
    bool m_terminal;
    int m_percent = -1;
};

// Sends one request and waits for the mask it produces: the controller
// emits sendNewMask() from its own thread and its run() ends right after.
// Null masks (emitted by reset()) are not answers.
QImage requestMask(PXImageSegmentation& controller, const std::function<void()>& request)
{
    QEventLoop loop;
    QImage mask;
    QObject receiver;
    QObject::connect(&controller, &PXImageSegmentation::sendNewMask, &receiver,
        [&](const QImage& image) {
            if (!image.isNull()) {
                mask = image;
                loop.quit();
            }
        },
        Qt::QueuedConnection);
    QTimer::singleShot(myStepTimeoutMs, &loop, &QEventLoop::quit);
    request();
    loop.exec();
    if (!mask.isNull())
        controller.wait();
    return mask;
}

// The smooth mask is one bit deep: a pixel is set where the blurred mask is
// nearer white than black. Set pixels are background; they take the mask colour.
QImage maskFromSmooth(const QImage& smooth, const QColor& maskColour)
{
    QImage mask(smooth.size(), QImage::Format_ARGB32_Premultiplied);
    const QRgb background = maskColour.rgb();
    for (int y = 0; y < smooth.height(); ++y) {
        QRgb* line = reinterpret_cast<QRgb*>(mask.scanLine(y));
        for (int x = 0; x < smooth.width(); ++x)
            line[x] = smooth.pixelIndex(x, y) ? background : 0;
    }
    return mask;
}

// The output folder is checked before any work: a cut of a large photo
// should not be thrown away because its results cannot be written.
bool checkOutputFolder(const QString& path, QString* error)
{
    QFileInfo folder(QDir::cleanPath(QDir(path).absolutePath()));
    while (!folder.exists() && !folder.isRoot())
        folder = QFileInfo(folder.absolutePath());
    if (!folder.isDir()) {
        *error = QStringLiteral("cannot write into %1: %2 is not a folder").arg(path, folder.filePath());
        return false;
    }
    if (!folder.isWritable()) {
        *error = QStringLiteral("cannot write into %1: %2 is not writable").arg(path, folder.filePath());
        return false;
    }
    return true;
}

bool writeImages(const QDir& out, const QList<std::pair<QString, QImage>>& images, QStringList* written,
    QString* error)
{
    if (!QDir().mkpath(out.path())) {
        *error = QStringLiteral("cannot create the folder %1").arg(out.path());
        return false;
    }
    // Encoding dominates the time on large photos, so the pictures are written at once.
    const QList<QString> failures = QtConcurrent::blockingMapped(images, [&out](const std::pair<QString, QImage>& entry) {
        QString failure;
        return PXFastPng::write(entry.second, out.filePath(entry.first), &failure) ? QString() : failure;
    });
    for (int i = 0; i < images.size(); ++i) {
        if (!failures.at(i).isEmpty()) {
            *error = failures.at(i);
            return false;
        }
        written->append(out.filePath(images.at(i).first));
    }
    return true;
}

void warn(const QString& message)
{
    std::fprintf(stderr, "pxcut: %s\n", qPrintable(message));
}

QString outsideMessage(const QString& what, const QList<QPointF>& points, int index, const QSize& size)
{
    const QString which = points.size() == 1 ? what
                                             : QStringLiteral("point %1 of %2").arg(index + 1).arg(what);
    return QStringLiteral("%1 (%2) lies outside the %3x%4 photo")
        .arg(which, PXPointList::format(points.at(index)))
        .arg(size.width())
        .arg(size.height());
}

bool checkInside(const QString& what, const QList<QPointF>& points, const QSize& size, QString* error)
{
    const int outside = PXPointList::firstOutside(points, size);
    if (outside < 0)
        return true;
    *error = outsideMessage(what, points, outside, size);
    return false;
}

QString defaultPhoto()
{
    return photosFolder() + QStringLiteral("/coffee.png");
}

// Near the picture's edge the library's smooth mask blurs into the
// transparent outside and leaks object pixels along the border; there the
// unblurred mask is kept.
QImage keepBorder(const QImage& smoothMask, const QImage& mask, int radius)
{
    QImage result = smoothMask;
    const int band = 2 * radius;
    QPainter painter(&result);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    const QRect inner = result.rect().adjusted(band, band, -band, -band);
    const QRegion border = QRegion(result.rect()).subtracted(inner.isValid() ? QRegion(inner) : QRegion());
    for (const QRect& rect : border)
        painter.drawImage(rect.topLeft(), mask, rect);
    return result;
}

// The first cut of @p lasso in the mode pxcut did not cut in, beside @p firstMask,
// the one it did: each cut out over a checkerboard and labelled, plain on the left.
QImage compareCuts(const PXHostPhoto& photo, const QPainterPath& lasso, const QImage& firstMask, bool refined)
{
    PXImageSegmentation controller;
    controller.setRefinedCut(!refined);
    controller.setup(photo.working(), photo.fileInfo());
    const QImage other = requestMask(controller, [&] { controller.startThreadWithInitialPath(lasso); });
    if (other.isNull())
        return QImage();
    const auto cutOut = [&photo](const QImage& mask) { return PXHostImages::cutOut(photo.photo(), photo.toPhotoSize(mask)); };
    return PXHostImages::sideBySide({ { QStringLiteral("plain cut"), cutOut(refined ? other : firstMask) },
        { QStringLiteral("refined cut"), cutOut(refined ? firstMask : other) } });
}

// The saved selection --mask-in names, at the working size; null with @p error on failure.
QImage readSavedSelection(const QString& path, const PXHostPhoto& photo, QString* error)
{
    const QImage saved(path);
    const QSize size = photo.photo().size();
    if (saved.isNull()) {
        *error = QStringLiteral("cannot read the mask %1").arg(path);
        return QImage();
    }
    if (saved.size() != size && saved.size() != photo.working().size()) {
        *error = QStringLiteral("the mask %1 is %2x%3, the photo %4x%5")
                     .arg(path)
                     .arg(saved.width())
                     .arg(saved.height())
                     .arg(size.width())
                     .arg(size.height());
        return QImage();
    }
    return PXSelectionMask::fromSaved(saved).scaled(photo.working().size(), Qt::IgnoreAspectRatio,
        Qt::SmoothTransformation);
}

// Fills arguments.lasso from the lasso file, or from the file beside the photo
// when no lasso option was given, and checks every point lies in the photo.
bool readLasso(PXCutArguments& arguments, const QString& photoPath, bool cut, const QSize& size, QString* error)
{
    if (cut && arguments.lassoSource.isEmpty() && arguments.lassoFile.isEmpty()) {
        const QFileInfo info(photoPath);
        arguments.lassoFile = info.dir().filePath(info.completeBaseName() + QStringLiteral(".lasso"));
        if (!QFileInfo::exists(arguments.lassoFile)) {
            *error = QStringLiteral("no lasso: give --lasso or --lasso-file, or put %1 beside the photo")
                         .arg(QFileInfo(arguments.lassoFile).fileName());
            return false;
        }
    }
    if (!arguments.lassoFile.isEmpty()) {
        QFile file(arguments.lassoFile);
        if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
            *error = QStringLiteral("cannot read the lasso file %1: %2").arg(arguments.lassoFile, file.errorString());
            return false;
        }
        if (!PXPointList::parse(QString::fromUtf8(file.readAll()), &arguments.lasso, error)) {
            *error = QStringLiteral("%1: %2").arg(arguments.lassoFile, *error);
            return false;
        }
        arguments.lassoSource = arguments.lassoFile;
    }
    if (cut && arguments.lasso.size() < 3) {
        *error = QStringLiteral("%1: a lasso needs at least 3 points, got %2")
                     .arg(arguments.lassoSource)
                     .arg(arguments.lasso.size());
        return false;
    }
    if (!checkInside(QStringLiteral("the lasso"), arguments.lasso, size, error))
        return false;
    QHash<QString, int> occurrences;
    for (const PXCutStep& step : std::as_const(arguments.steps)) {
        const int occurrence = ++occurrences[step.option];
        const QString what = step.kind == PXCutStep::Click
            ? step.option
            : QStringLiteral("%1 #%2").arg(step.option).arg(occurrence);
        if (!checkInside(what, step.points, size, error))
            return false;
    }
    return true;
}

// The clicks, strokes and inversion of the command line, in order, on @p mask.
bool applySteps(PXImageSegmentation& controller, const PXCutArguments& arguments, const PXHostPhoto& photo,
    QImage* mask, QStringList* warnings, QString* error)
{
    const qreal brushScale = std::sqrt(photo.scaleX() * photo.scaleY());
    PXOutsideRegions outside;
    QHash<QString, int> occurrences;
    for (const PXCutStep& step : arguments.steps) {
        const int occurrence = ++occurrences[step.option];
        const QList<QPointF> points = PXPointList::scaled(step.points, photo.scaleX(), photo.scaleY());
        switch (step.kind) {
        case PXCutStep::Click:
            // Outside the lasso the library would toggle everything the lasso
            // left out as one region.
            if (!PXSegmentationQueries::insideLasso(controller, points.first())) {
                warnings->append(QStringLiteral("--click (%1) lies outside the lasso; ignored (a click "
                                                "there would toggle all that the lasso left out)")
                                     .arg(PXPointList::format(step.points.first())));
                warn(warnings->last());
                continue;
            }
            // The clicker runs on the global pool and emits nothing; its result
            // is read back once the pool is idle.
            controller.startThreadWithClicker(points.first());
            QThreadPool::globalInstance()->waitForDone();
            *mask = controller.maskForeground();
            break;
        case PXCutStep::Paint:
        case PXCutStep::Scribble: {
            const QPainterPath stroke = PXPointList::brushStroke(points, step.radius * brushScale);
            const bool paint = step.kind == PXCutStep::Paint;
            // The refined cut keeps the object inside the lasso by itself.
            if (paint && step.foreground && !arguments.refine && outside.touchedBy(controller, stroke)) {
                warnings->append(QStringLiteral("--paint #%1 (fg) touches a region that reaches outside the lasso; "
                                                "ignored (in the plain cut it would put all that the lasso left "
                                                "out into the object)")
                                     .arg(occurrence));
                warn(warnings->last());
                continue;
            }
            // One final stroke per option: a command line has no gesture to undo.
            *mask = requestMask(controller, [&] {
                if (paint)
                    controller.startThreadWithPaintSelection(stroke, step.foreground, false);
                else
                    controller.startThreadWithScribble(stroke, step.foreground, false);
            });
            break;
        }
        }
        if (mask->isNull()) {
            *error = QStringLiteral("%1 produced no mask").arg(step.option);
            return false;
        }
    }
    if (arguments.invert) {
        *mask = requestMask(controller, [&] { controller.invertMask(); });
        if (mask->isNull()) {
            *error = QStringLiteral("--invert produced no mask");
            return false;
        }
    }
    return true;
}

// The library's smooth mask of radius @p radius in @p maskColour; null when it made none.
QImage smoothMask(PXImageSegmentation& controller, const QImage& mask, const QColor& maskColour, int radius)
{
    // The one-bit smooth mask keeps only pixels nearer white than black, so
    // it is taken with a white mask and given the mask colour afterwards.
    if (maskColour.rgb() != QColor(Qt::white).rgb())
        requestMask(controller, [&] { controller.setMaskColor(Qt::white); });
    const QImage smooth = controller.createSmoothForegroundMask(radius);
    return smooth.isNull() ? QImage() : keepBorder(maskFromSmooth(smooth, maskColour), mask, radius);
}

struct CutSummary {
    /** "refined" or "plain"; "none" for a saved mask without a lasso. */
    QString cut;
    QSize workedOn;
    int regions = 0;
    double share = 0;
    qint64 cutMs = 0;
    qint64 matteMs = -1; // -1 without --matte
    QStringList written;
    QStringList warnings;
};

void printSummary(const PXCutArguments& arguments, const PXHostPhoto& photo, const CutSummary& summary,
    const QElapsedTimer& sinceStart)
{
    const QSize size = photo.photo().size();
    const double totalTime = sinceStart.elapsed() / 1000.0;
    if (arguments.json) {
        QJsonObject json {
            { QStringLiteral("photo"), photo.fileInfo().fileName() },
            { QStringLiteral("width"), size.width() },
            { QStringLiteral("height"), size.height() },
            { QStringLiteral("workedOn"), QJsonArray { summary.workedOn.width(), summary.workedOn.height() } },
            { QStringLiteral("cut"), summary.cut },
            { QStringLiteral("regions"), summary.regions },
            { QStringLiteral("objectFraction"), summary.share },
            { QStringLiteral("cutSeconds"), summary.cutMs / 1000.0 },
            { QStringLiteral("totalSeconds"), totalTime },
            { QStringLiteral("files"), QJsonArray::fromStringList(summary.written) },
            { QStringLiteral("warnings"), QJsonArray::fromStringList(summary.warnings) } };
        if (summary.matteMs >= 0)
            json.insert(QStringLiteral("matteSeconds"), summary.matteMs / 1000.0);
        std::printf("%s\n", QJsonDocument(json).toJson(QJsonDocument::Compact).constData());
        return;
    }
    std::printf("%s %dx%d (worked on %dx%d): %s cut, %d regions, object %.1f%% of the photo; cut %.2f s, "
                "total %.2f s -> %s\n",
        qPrintable(photo.fileInfo().fileName()), size.width(), size.height(), summary.workedOn.width(),
        summary.workedOn.height(), summary.cut == QLatin1String("none") ? "no" : qPrintable(summary.cut),
        summary.regions, 100 * summary.share, summary.cutMs / 1000.0, totalTime,
        qPrintable(QDir::toNativeSeparators(QDir(arguments.outputDirectory).path())));
}

// Writes mask.png, cutout.png, overlay.png and, with --compare, compare.png of
// @p lasso's plain and refined cut, @p firstMask being the one cut here; notes
// the object's share in @p summary.
bool writeResults(const PXCutArguments& arguments, const PXHostPhoto& photo, const QImage& mask,
    const QImage& contours, const QPainterPath& lasso, const QImage& firstMask, const QImage& matteCutout,
    CutSummary* summary, QString* error)
{
    const QImage finalMask = photo.toPhotoSize(mask);
    // Counted on the working size: on a large photo the full size costs a second.
    summary->share = PXHostImages::objectShare(mask);
    if (summary->share == 0) {
        summary->warnings.append(QStringLiteral(
            "the cut selected nothing (0% object). The lasso is probably too tight (only regions wholly inside "
            "it, grown by 10 pixels, become the object) or too loose (the object's colours are common in the "
            "background it encloses). Draw the lasso a little outside the object's outline, or add regions "
            "with --click or --paint fg."));
        warn(summary->warnings.last());
    }
    // Two seconds each on a large photo: the overlay is made beside the cut-out.
    QFuture<QImage> overlayFuture = QtConcurrent::run([&] {
        return PXHostImages::overlay(photo.photo(), finalMask, photo.toPhotoSize(contours));
    });
    // A feather or the matte softens the cut-out's edge; the mask stays the library's.
    const QImage cutout = !matteCutout.isNull() ? matteCutout
        : arguments.featherRadius > 0
        ? PXHostImages::cutOut(photo.photo(),
            PXSelectionMask::toMask(
                PXSelectionMask::feathered(PXSelectionMask::fromMask(finalMask), arguments.featherRadius),
                Qt::black))
        : PXHostImages::cutOut(photo.photo(), finalMask);
    const QImage overlay = overlayFuture.result();

    QList<std::pair<QString, QImage>> images = { { QStringLiteral("mask.png"), finalMask },
        { QStringLiteral("cutout.png"), cutout }, { QStringLiteral("overlay.png"), overlay } };
    if (!matteCutout.isNull()) {
        QImage matte = matteCutout.convertToFormat(QImage::Format_Alpha8);
        matte.reinterpretAsFormat(QImage::Format_Grayscale8);
        images.append({ QStringLiteral("matte.png"), matte });
    }
    if (arguments.compare && !lasso.isEmpty()) {
        const QImage comparison = compareCuts(photo, lasso, firstMask, arguments.refine);
        if (comparison.isNull()) {
            *error = QStringLiteral("--compare: a cut produced no mask");
            return false;
        }
        images.append({ QStringLiteral("compare.png"), comparison });
    }
    return writeImages(QDir(arguments.outputDirectory), images, &summary->written, error);
}

int runCut(PXCutArguments arguments, const QElapsedTimer& sinceStart)
{
    QString error;
    if (!checkOutputFolder(arguments.outputDirectory, &error))
        return fail(error);
    const QString photoPath = arguments.photo.isEmpty() ? defaultPhoto() : arguments.photo;
    const int maximalLength = PXSingleton<PXImageCutterSettings>::instance()->maximalImageLength();
    const PXHostPhoto photo = PXHostPhoto::load(photoPath, maximalLength, &error);
    if (photo.isNull())
        return fail(QStringLiteral("cannot read the photo %1").arg(error));

    QImage savedSelection;
    if (!arguments.maskIn.isEmpty() && (savedSelection = readSavedSelection(arguments.maskIn, photo, &error)).isNull())
        return fail(error);
    // A saved mask alone needs no lasso; clicks and paint then have no regions.
    const bool cut = savedSelection.isNull() || !arguments.lassoSource.isEmpty() || !arguments.lassoFile.isEmpty();
    if (!cut) {
        for (const PXCutStep& step : std::as_const(arguments.steps)) {
            if (step.kind != PXCutStep::Scribble)
                return fail(QStringLiteral("%1 needs the regions of a cut: give --mask-in a lasso as well")
                                .arg(step.option));
        }
    }
    if (!readLasso(arguments, photoPath, cut, photo.photo().size(), &error))
        return fail(error);

    PXImageSegmentation controller;
    // The library defaults to the plain cut; pxcut to the refined one.
    controller.setRefinedCut(arguments.refine);
    if (arguments.maskColour.isValid())
        controller.setMaskColor(arguments.maskColour);
    controller.setup(photo.working(), photo.fileInfo());
    // An invalid colour is the library's default: opaque black.
    const QColor maskColour = QColor::fromRgb(arguments.maskColour.rgb());

    ProgressBar bar("cutting");
    QObject::connect(&controller, &PXImageSegmentation::segmentationProgress, &controller,
        [&bar](int current, int total) {
            if (total > 0)
                bar.show(double(current) / total);
        },
        Qt::QueuedConnection);

    QElapsedTimer timer;
    timer.start();
    const QPainterPath lasso = PXPointList::closedPolygon(
        PXPointList::scaled(arguments.lasso, photo.scaleX(), photo.scaleY()));
    QImage mask;
    if (cut) {
        mask = requestMask(controller, [&] { controller.startThreadWithInitialPath(lasso); });
        bar.finish();
        if (mask.isNull()) {
            controller.cancel();
            return fail(QStringLiteral("the cut produced no mask"));
        }
    }
    const QImage firstMask = mask;
    if (!savedSelection.isNull()) {
        // The saved mask replaces the cut's; the cut's regions stay for refining it.
        const std::unique_ptr<PXMementoSegmentation> state(controller.createMemento(false));
        const PXMementoSegmentation saved(state->lassoPath(), state->foregroundClusters(),
            state->backgroundClusters(), PXSelectionMask::toMask(savedSelection, maskColour), QImage(), {},
            maskColour);
        mask = requestMask(controller, [&] { controller.setMemento(&saved); });
    }
    CutSummary summary;
    summary.cut = !cut ? QStringLiteral("none") : arguments.refine ? QStringLiteral("refined") : QStringLiteral("plain");
    if (!applySteps(controller, arguments, photo, &mask, &summary.warnings, &error))
        return fail(error);
    summary.cutMs = timer.elapsed();

    const QImage contours = cut ? controller.drawContour() : QImage();
    summary.workedOn = photo.working().size();
    summary.regions = cut ? PXSegmentationQueries::regionCount(controller, summary.workedOn) : 0;
    if (arguments.smoothRadius > 0) {
        mask = smoothMask(controller, mask, maskColour, arguments.smoothRadius);
        if (mask.isNull())
            return fail(QStringLiteral("--smooth produced no mask"));
    }

    QImage matteCutout;
    if (arguments.matte) {
        QElapsedTimer matteTimer;
        matteTimer.start();
        matteCutout = controller.matteCutout(photo.photo());
        summary.matteMs = matteTimer.elapsed();
        if (matteCutout.isNull())
            return fail(QStringLiteral("--matte: there is no mask to soften"));
    }
    if (!writeResults(arguments, photo, mask, contours, cut ? lasso : QPainterPath(), firstMask, matteCutout,
            &summary, &error))
        return fail(error);
    printSummary(arguments, photo, summary, sinceStart);
    return Success;
}

// Writes wire.png (the photo with @p wires drawn) and wire.json.
bool writeWires(const PXCutArguments& arguments, const PXHostPhoto& photo, const QList<QList<QPoint>>& wires,
    QStringList* written, QString* error)
{
    QJsonArray wireArray;
    for (int i = 0; i < wires.size(); ++i) {
        QJsonArray points;
        for (const QPoint& p : wires.at(i))
            points.append(QJsonArray { p.x(), p.y() });
        wireArray.append(QJsonObject {
            { QStringLiteral("seed"), QJsonArray { arguments.seeds.at(i).x(), arguments.seeds.at(i).y() } },
            { QStringLiteral("to"), QJsonArray { arguments.targets.at(i).x(), arguments.targets.at(i).y() } },
            { QStringLiteral("points"), points } });
    }
    const QJsonObject document {
        { QStringLiteral("photo"), photo.fileInfo().fileName() },
        { QStringLiteral("width"), photo.photo().width() },
        { QStringLiteral("height"), photo.photo().height() },
        { QStringLiteral("wires"), wireArray } };

    const QDir out(arguments.outputDirectory);
    if (!writeImages(out, { { QStringLiteral("wire.png"), PXHostImages::wires(photo.photo(), wires) } }, written,
            error))
        return false;
    QFile json(out.filePath(QStringLiteral("wire.json")));
    if (!json.open(QIODevice::WriteOnly | QIODevice::Truncate)
        || json.write(QJsonDocument(document).toJson(QJsonDocument::Compact)) < 0) {
        *error = QStringLiteral("cannot write %1").arg(json.fileName());
        return false;
    }
    written->append(json.fileName());
    return true;
}

int runWire(const PXCutArguments& arguments, const QElapsedTimer& sinceStart)
{
    QString error;
    if (!checkOutputFolder(arguments.outputDirectory, &error))
        return fail(error);
    const QString photoPath = arguments.photo.isEmpty() ? defaultPhoto() : arguments.photo;
    // The scissors work at full resolution: they compute their costs lazily,
    // block by block, around the seeds.
    const PXHostPhoto photo = PXHostPhoto::load(photoPath, 0, &error);
    if (photo.isNull())
        return fail(QStringLiteral("cannot read the photo %1").arg(error));
    const QSize size = photo.photo().size();
    for (int i = 0; i < arguments.seeds.size(); ++i) {
        if (!checkInside(QStringLiteral("--seed"), { arguments.seeds.at(i) }, size, &error)
            || !checkInside(QStringLiteral("--to"), { arguments.targets.at(i) }, size, &error))
            return fail(error);
    }

    PXIntelligentScissors scissors;
    ProgressBar bar("tracing");
    // The search reports the share of the photo it has settled, which says
    // little about how near the target it is: a wire is found long before
    // all is settled. On each report the bar measures how far along the
    // straight line to the target the settled area reaches.
    int wireIndex = 0;
    QPointF seed;
    QPointF target;
    QObject::connect(&scissors, &PXIntelligentScissors::progessChanged, &scissors,
        [&](double) {
            constexpr int samples = 50;
            int reached = 0;
            for (int k = 1; k < samples; ++k) {
                if (scissors.containsWireToPoint(seed + (target - seed) * (double(k) / samples)))
                    reached = k;
            }
            bar.show((wireIndex + double(reached) / samples) / arguments.seeds.size());
        },
        Qt::QueuedConnection);
    scissors.setup(photo.photo());

    QElapsedTimer timer;
    timer.start();
    QList<QList<QPoint>> wires;
    for (int i = 0; i < arguments.seeds.size(); ++i) {
        seed = arguments.seeds.at(i);
        target = arguments.targets.at(i);
        wireIndex = i;
        bar.show(double(i) / arguments.seeds.size());
        scissors.initializeSeed(seed);
        QElapsedTimer waiting;
        waiting.start();
        while (!scissors.containsWireToPoint(target)) {
            if (waiting.elapsed() > myStepTimeoutMs) {
                scissors.clear();
                return fail(QStringLiteral("the wire to %1 was not found in time").arg(PXPointList::format(target)));
            }
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
            QThread::msleep(2);
        }
        QList<QPoint> traced = scissors.bestWire(target);
        // The scissors trace back from the target; a wire reads from its seed.
        std::reverse(traced.begin(), traced.end());
        wires.append(PXPointList::joinedWire(traced, seed.toPoint(), target.toPoint(), size));
    }
    scissors.clear();
    bar.show(1);
    bar.finish();
    const qint64 elapsed = timer.elapsed();

    QStringList written;
    if (!writeWires(arguments, photo, wires, &written, &error))
        return fail(error);
    int pointCount = 0;
    for (const QList<QPoint>& wire : std::as_const(wires))
        pointCount += int(wire.size());
    const double totalTime = sinceStart.elapsed() / 1000.0;
    if (arguments.json) {
        const QJsonObject summary { { QStringLiteral("photo"), photo.fileInfo().fileName() },
            { QStringLiteral("width"), size.width() }, { QStringLiteral("height"), size.height() },
            { QStringLiteral("wires"), int(wires.size()) }, { QStringLiteral("points"), pointCount },
            { QStringLiteral("traceSeconds"), elapsed / 1000.0 }, { QStringLiteral("totalSeconds"), totalTime },
            { QStringLiteral("files"), QJsonArray::fromStringList(written) } };
        std::printf("%s\n", QJsonDocument(summary).toJson(QJsonDocument::Compact).constData());
        return Success;
    }
    std::printf("%s %dx%d: %d wire%s, %d points; trace %.2f s, total %.2f s -> %s\n",
        qPrintable(photo.fileInfo().fileName()), size.width(), size.height(), int(wires.size()),
        wires.size() == 1 ? "" : "s", pointCount, elapsed / 1000.0, totalTime,
        qPrintable(QDir::toNativeSeparators(QDir(arguments.outputDirectory).path())));
    return Success;
}

} // namespace

int main(int argc, char* argv[])
{
    // The smooth mask needs a GUI application; without a display it runs on
    // the offscreen platform.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && qEnvironmentVariableIsEmpty("DISPLAY")
        && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QElapsedTimer sinceStart;
    sinceStart.start();
    QApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("pxcut"));

    PXCutArguments arguments;
    QString error;
    if (!arguments.parse(QCoreApplication::arguments().mid(1), &error)) {
        std::fprintf(stderr, "pxcut: %s\n\n%s", qPrintable(error), qPrintable(PXCutArguments::usage()));
        return UsageError;
    }
    switch (arguments.command) {
    case PXCutArguments::Help:
        std::printf("%s", qPrintable(PXCutArguments::usage()));
        return Success;
    case PXCutArguments::Cut:
        return runCut(arguments, sinceStart);
    case PXCutArguments::Wire:
        return runWire(arguments, sinceStart);
    }
    return Success;
}
