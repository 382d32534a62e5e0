// Pins every output of the library for the shipped photos: SLIC stage by
// stage, regions, the edge image, masks through a scripted session, scissors
// cost maps and wires. Any change of a digest is a change of behaviour.
//
// The digests are kept per assignment kernel (the vector kernels label
// differently from the scalar one by design) in golden-<kernel>.txt beside
// this file; the core count must not matter. To write them anew, which only a
// deliberate change of behaviour may do:
//   PX_GOLDEN_UPDATE=1 ctest --preset default -R golden
// and say why in the commit message.

#include "GoldenDigest.h"
#include "PXCpuFeatures.h"
#include "PXEdgeDetectorSobelColor.h"
#include "PXImage.h"
#include "PXInitialSegmentationWorker.h"
#include "PXIntelligentScissors.h"
#include "PXIntelligentScissorsWeightCalculator.h"
#include "PXSlic.h"
#include "PXSuperPixel.h"
#include "PXUndoController.h"
#include "SegmentationTestSupport.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QUndoStack>
#include <QtTest>

// Beside the record's own namespace, so that lists of records find it.
inline GoldenDigest& operator<<(GoldenDigest& digest, const PXSuperPixel& record)
{
    return digest << record.color().luminance() << record.color().cb() << record.color().cr()
                  << record.xCenter() << record.yCenter() << record.pixelCount();
}

namespace {

QString kernelName()
{
    return QLatin1String(pxCpuHasFeature(CPU_FEATURE_AVX) ? "avx" : pxCpuHasFeature(CPU_FEATURE_SSE) ? "sse" : "none");
}

QImage shippedPhoto(const QString& name)
{
    return QImage(QStringLiteral(PX_PHOTOS_DIR "/%1.png").arg(name));
}

/** The lasso shipped beside the photo, "x,y" pairs with # comments. */
QPainterPath shippedLasso(const QString& name)
{
    QFile file(QStringLiteral(PX_PHOTOS_DIR "/%1.lasso").arg(name));
    QPainterPath path;
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return path;
    const QString text = QString::fromUtf8(file.readAll()).remove(QRegularExpression(QStringLiteral("#[^\n]*")));
    QPolygonF points;
    for (auto it = QRegularExpression(QStringLiteral("(-?[0-9.]+),(-?[0-9.]+)")).globalMatch(text); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        points << QPointF(match.captured(1).toDouble(), match.captured(2).toDouble());
    }
    path.addPolygon(points);
    path.closeSubpath();
    return path;
}

/** A closed polygon of points given as fractions of @p size. */
QPainterPath relativeLasso(QSizeF size, std::initializer_list<QPointF> fractions)
{
    QPolygonF polygon;
    for (const QPointF& fraction : fractions)
        polygon << QPointF(fraction.x() * size.width(), fraction.y() * size.height());
    QPainterPath path;
    path.addPolygon(polygon);
    path.closeSubpath();
    return path;
}

QPainterPath lasso(const QString& photo, const QString& kind, QSizeF size)
{
    if (kind == "normal")
        return shippedLasso(photo);
    if (kind == "thin")
        return relativeLasso(size, {{0.15, 0.48}, {0.85, 0.47}, {0.85, 0.49}, {0.15, 0.5}});
    if (kind == "border") // two points within 2 % of an edge, snapped onto it
        return relativeLasso(size, {{0.0, 0.0}, {0.55, 0.0}, {0.6, 0.45}, {0.3, 0.6}, {0.012, 0.55}});
    if (kind == "outside")
        return relativeLasso(size, {{0.55, 0.35}, {1.2, 0.3}, {1.15, 1.25}, {0.6, 1.1}, {0.5, 0.7}});
    if (kind == "tiny")
        return relativeLasso(size, {{0.5, 0.5}, {0.515, 0.5}, {0.515, 0.52}, {0.5, 0.52}});
    // self-intersecting: a bow tie
    return relativeLasso(size, {{0.25, 0.2}, {0.75, 0.8}, {0.75, 0.2}, {0.25, 0.8}});
}

/** Sets @p host up on @p image and waits for the first mask of @p lasso. */
bool firstCut(Host& host, const QImage& image, const QPainterPath& lasso)
{
    host.controller.setup(image, QFileInfo());
    host.forget();
    host.controller.startThreadWithInitialPath(lasso);
    return QTest::qWaitFor([&host] { return host.nonNullMasks() == 1; }, 60000);
}

const QStringList myPhotos {QStringLiteral("coffee"), QStringLiteral("astronaut")};
const QStringList myLassos {QStringLiteral("normal"), QStringLiteral("thin"), QStringLiteral("border"),
    QStringLiteral("outside"), QStringLiteral("tiny"), QStringLiteral("crossing")};

void addPhotoRows()
{
    QTest::addColumn<QString>("photo");
    for (const QString& photo : myPhotos)
        QTest::newRow(qPrintable(photo)) << photo;
}

void addPhotoLassoRows()
{
    QTest::addColumn<QString>("photo");
    QTest::addColumn<QString>("lasso");
    for (const QString& photo : myPhotos)
        for (const QString& lasso : myLassos)
            QTest::addRow("%s-%s", qPrintable(photo), qPrintable(lasso)) << photo << lasso;
}

} // namespace

class TestGolden : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase() { QVERIFY(!m_table || !m_table->updating() || m_table->write()); }
    void workingImageAndEdges_data() { addPhotoRows(); }
    void workingImageAndEdges();
    void superpixelStages_data() { addPhotoLassoRows(); }
    void superpixelStages();
    void regions_data() { addPhotoLassoRows(); }
    void regions();
    void firstMask_data() { addPhotoLassoRows(); }
    void firstMask();
    void scriptedSession_data() { addPhotoRows(); }
    void scriptedSession();
    void costMaps_data();
    void costMaps();
    void wires_data();
    void wires();

private:
    void check(const QString& stage, const GoldenDigest& digest);

    std::unique_ptr<GoldenTable> m_table;
};

void TestGolden::initTestCase()
{
    const QString requested = qEnvironmentVariable("PX_CPU_FEATURES");
    const QString kernel = kernelName();
    if ((requested == "sse" && kernel != "sse") || (requested.contains("avx") && kernel != "avx"))
        QSKIP("the processor lacks the requested vector kernel");
    m_table = std::make_unique<GoldenTable>(QStringLiteral(PX_GOLDEN_DIR "/golden-%1.txt").arg(kernel));
    for (const QString& photo : myPhotos)
        QVERIFY2(!shippedPhoto(photo).isNull(), qPrintable(photo));
}

void TestGolden::check(const QString& stage, const GoldenDigest& digest)
{
    const QString key = QStringLiteral("%1/%2").arg(QString::fromLatin1(QTest::currentDataTag()), stage);
    if (m_table->updating()) {
        m_table->record(key, digest.hex());
        return;
    }
    const QByteArray stored = m_table->stored(key);
    QVERIFY2(!stored.isEmpty(), qPrintable("no stored digest for " + key));
    QVERIFY2(stored == digest.hex(), qPrintable("changed: " + key));
}

void TestGolden::workingImageAndEdges()
{
    QFETCH(QString, photo);
    const QImage image = shippedPhoto(photo);
    check("ycbcr", GoldenDigest() << PXImage(image, QFileInfo()).imageYCbCr());

    PXEdgeDetectorSobelColor detector;
    detector.setup(image, QFileInfo());
    detector.start();
    QVERIFY(detector.wait(60000));
    check("sobel", GoldenDigest() << detector.sobel());
    check("sobelStatistics", GoldenDigest() << detector.mean() << detector.average());
}

void TestGolden::superpixelStages()
{
    QFETCH(QString, photo);
    QFETCH(QString, lasso);
    PXImage image(shippedPhoto(photo), QFileInfo());
    PXSlic slic;
    slic.setup(&image, ::lasso(photo, lasso, image.size()));
    check("slicParameters", GoldenDigest() << slic.gridStep() << slic.superPixelCount() << slic.iterations()
                                           << slic.lassoBoundingRect().topLeft()
                                           << slic.lassoBoundingRect().bottomRight());
    slic.initialize();
    check("slicInitialize", GoldenDigest() << slic.superPixelAssignments() << slic.clusterInformations());
    slic.adjustSuperPixels();
    check("slicAdjust", GoldenDigest() << slic.superPixelAssignments() << slic.clusterInformations());
    slic.clipLabelsToLasso();
    check("slicClip", GoldenDigest() << slic.superPixelAssignments() << slic.clusterInformations());
    slic.forceConnectivity();
    check("slicConnectivity", GoldenDigest() << slic.superPixelAssignments() << slic.clusterInformations());
}

void TestGolden::regions()
{
    QFETCH(QString, photo);
    QFETCH(QString, lasso);
    const QImage image = shippedPhoto(photo);
    PXInitialSegmentationWorker worker(image, QFileInfo());
    QSignalSpy finished(&worker, &PXInitialSegmentationWorker::finished);
    worker.startInitialSegmentation(::lasso(photo, lasso, image.size())).waitForFinished();
    QTRY_COMPARE_WITH_TIMEOUT(finished.count(), 1, 60000);
    // The steps arrive queued unless waitForFinished() ran the task in this
    // thread; wait for them, so the digest does not depend on that.
    QTRY_COMPARE(worker.currentStep(), worker.totalSteps());
    check("workerPaths", GoldenDigest() << worker.path() << worker.pathExpanded());
    check("regionLabels", GoldenDigest() << worker.labels() << worker.superpixel());
    check("regionPoints", GoldenDigest() << worker.pointsOfSuperpixel());
    check("regionNeighbours", GoldenDigest() << worker.neighbours());
    check("workerSteps", GoldenDigest() << worker.totalSteps() << worker.currentStep());
}

void TestGolden::firstMask()
{
    QFETCH(QString, photo);
    QFETCH(QString, lasso);
    const QImage image = shippedPhoto(photo);
    Host host;
    QVERIFY(firstCut(host, image, ::lasso(photo, lasso, image.size())));
    host.settle();
    GoldenDigest masks;
    for (const QList<QVariant>& arguments : host.masks)
        masks << arguments.first().value<QImage>();
    check("firstMask", masks);
    std::unique_ptr<PXMementoSegmentation> memento(host.controller.createMemento(true));
    check("firstSelection", GoldenDigest() << memento->foregroundClusters() << memento->backgroundClusters()
                                           << memento->labels() << host.controller.isValid());
}

// A user's session after the first cut: every refinement, then undo and redo.
void TestGolden::scriptedSession()
{
    QFETCH(QString, photo);
    const QImage image = shippedPhoto(photo);
    const QSizeF size = image.size();
    QUndoStack* stack = PXUndoController::instanceForFotoEditor()->undoStack();
    stack->clear();
    Host host;
    QVERIFY(firstCut(host, image, shippedLasso(photo)));
    host.forget();

    // A brush of radius 8 along the points, as the hosts send it.
    auto stroke = [&](std::initializer_list<QPointF> fractions) {
        QPainterPath path(QPointF(fractions.begin()->x() * size.width(), fractions.begin()->y() * size.height()));
        for (const QPointF& fraction : fractions)
            path.lineTo(fraction.x() * size.width(), fraction.y() * size.height());
        QPainterPathStroker brush;
        brush.setWidth(16);
        brush.setCapStyle(Qt::RoundCap);
        brush.setJoinStyle(Qt::RoundJoin);
        return brush.createStroke(path);
    };
    auto step = [&](const QString& name) {
        host.settle();
        QTRY_VERIFY(!host.controller.isRunning());
        host.settle();
        // What was published, and the state itself: a click publishes nothing.
        GoldenDigest state;
        for (const QList<QVariant>& arguments : host.masks)
            state << arguments.first().value<QImage>();
        std::unique_ptr<PXMementoSegmentation> memento(host.controller.createMemento(false));
        state << memento->mask() << memento->foregroundClusters() << memento->backgroundClusters();
        check(name, state);
        host.masks.clear();
    };

    // A gesture: a temporary stroke, then the final one once it is painted.
    auto gesture = [&](bool scribble, bool isForeground, const QPainterPath& partial, const QPainterPath& whole) {
        auto send = scribble ? &PXImageSegmentation::startThreadWithScribble
                             : &PXImageSegmentation::startThreadWithPaintSelection;
        (host.controller.*send)(partial, isForeground, true);
        host.settle();
        QTRY_VERIFY(!host.controller.isRunning());
        (host.controller.*send)(whole, isForeground, false);
    };

    host.controller.startThreadWithClicker(QPointF(size.width() * 0.5, size.height() * 0.5));
    step("click");
    gesture(false, true, stroke({{0.3, 0.3}, {0.35, 0.32}}), stroke({{0.3, 0.3}, {0.35, 0.32}, {0.4, 0.36}}));
    step("paintObject");
    gesture(false, false, stroke({{0.7, 0.7}, {0.72, 0.75}}), stroke({{0.7, 0.7}, {0.72, 0.75}, {0.6, 0.8}}));
    step("paintBackground");
    gesture(true, false, stroke({{0.45, 0.4}, {0.55, 0.45}}), stroke({{0.45, 0.4}, {0.55, 0.45}, {0.6, 0.5}}));
    step("scribbleBackground");
    gesture(true, true, stroke({{0.5, 0.6}, {0.52, 0.65}}), stroke({{0.4, 0.6}, {0.42, 0.7}}));
    step("scribbleObject");
    host.controller.startThreadWithPaintSelectionHover(
        host.controller.superpixels(QPoint(int(size.width() * 0.6), int(size.height() * 0.3)), 15), true);
    step("hover");
    host.controller.setMaskColor(QColor(20, 40, 200));
    step("maskColour");
    host.controller.invertMask();
    step("invert");
    host.controller.invertMask();
    step("invertBack");
    check("undoSteps", GoldenDigest() << stack->count());
    stack->undo();
    step("undo");
    stack->undo();
    step("undoTwice");
    stack->redo();
    step("redo");
    check("maskForeground", GoldenDigest() << host.controller.maskForeground());
    check("contour", GoldenDigest() << host.controller.drawContour());
    check("smoothMask", GoldenDigest() << host.controller.createSmoothForegroundMask(4));
    std::unique_ptr<PXMementoSegmentation> memento(host.controller.createMemento(false));
    check("finalSelection", GoldenDigest() << memento->foregroundClusters() << memento->backgroundClusters());
    stack->clear();
}

void TestGolden::costMaps_data()
{
    using WC = PXIntelligentScissorsWeightCalculator;
    QTest::addColumn<QImage>("image");
    QTest::addColumn<WC::Settings>("settings");
    const WC::Settings live;
    const WC::Settings sobel(WC::Mean3x3, WC::Sobel3x3, WC::Sigmoid, false);
    const WC::Settings sobelInverted(WC::Mean2x2, WC::Sobel3x3, WC::NoPostProcessing, true);
    for (const QString& photo : myPhotos) {
        const QImage image = shippedPhoto(photo).convertToFormat(QImage::Format_RGB32);
        QTest::addRow("%s-live", qPrintable(photo)) << image << live;
        QTest::addRow("%s-sobelSigmoid", qPrintable(photo)) << image << sobel;
        QTest::addRow("%s-sobelInverted", qPrintable(photo)) << image << sobelInverted;
    }
    // Reduced images wider and taller than one 4096-pixel block.
    const QImage coffee = shippedPhoto("coffee").convertToFormat(QImage::Format_RGB32);
    QTest::newRow("wide-blocks") << coffee.scaled(8210, 14) << sobel;
    QTest::newRow("tall-blocks") << coffee.scaled(14, 8210) << sobelInverted;
}

void TestGolden::costMaps()
{
    using WC = PXIntelligentScissorsWeightCalculator;
    QFETCH(QImage, image);
    QFETCH(WC::Settings, settings);
    WC calculator(image.width(), image.height(), settings);
    calculator.setImage(image.constBits(), WC::Xrgb32, image.bytesPerLine());
    calculator.calculateRegion(0, 0, 1u << 30);
    GoldenDigest costs;
    for (unsigned int y = 0; y < calculator.heightReduced(); ++y) {
        for (unsigned int x = 0; x < calculator.widthReduced(); ++x) {
            unsigned char cost = 0;
            QVERIFY(calculator.get(x, y, &cost));
            costs << cost;
        }
    }
    check("costMap", costs);
}

void TestGolden::wires_data()
{
    QTest::addColumn<QString>("photo");
    QTest::addColumn<QList<QPointF>>("points");
    // Seed, target, seed, target...: five wires a photo.
    QTest::newRow("coffee") << QStringLiteral("coffee")
                            << QList<QPointF> {{170, 120}, {300, 20}, {300, 20}, {420, 100}, {62.4, 220.6},
                                   {488.5, 170.2}, {340, 398}, {100, 345}, {599, 399}, {0, 0}};
    QTest::newRow("astronaut") << QStringLiteral("astronaut")
                               << QList<QPointF> {{150, 40}, {305, 60}, {305, 60}, {370, 400}, {20, 511},
                                      {160, 140}, {256.5, 256.5}, {10, 10}, {511, 0}, {0, 511}};
}

void TestGolden::wires()
{
    QFETCH(QString, photo);
    QFETCH(QList<QPointF>, points);
    PXIntelligentScissors scissors;
    scissors.setup(shippedPhoto(photo));
    GoldenDigest wires;
    for (int i = 0; i + 1 < points.size(); i += 2) {
        scissors.initializeSeed(points.at(i));
        QTRY_VERIFY_WITH_TIMEOUT(scissors.containsWireToPoint(points.at(i + 1)), 60000);
        wires << scissors.bestWire(points.at(i + 1));
    }
    wires << scissors.seeds();
    check("wires", wires);
}

QTEST_MAIN(TestGolden)
#include "tst_golden.moc"
