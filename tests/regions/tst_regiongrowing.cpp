#include "PXImage.h"
#include "PXRegionGrowing.h"
#include "PXRegionGrowingEdgeCandidate.h"
#include "RegionTestImages.h"

#include <QSignalSpy>
#include <QtTest>

#include <algorithm>
#include <memory>

using namespace RegionTestImages;

namespace {

using EdgeMap = QMap<QPair<int, int>, double>;

EdgeMap edgeMap(const QList<PXRegionGrowingEdge>& edges)
{
    EdgeMap map;
    for (const PXRegionGrowingEdge& edge : edges)
        map.insert({edge.fromTo().from(), edge.fromTo().to()}, edge.edgeStrength());
    return map;
}

QPainterPath rectPath(const QRectF& rect)
{
    QPainterPath path;
    path.addRect(rect);
    return path;
}

// Two clusters side by side in a 5 x 3 label image whose lasso rectangle
// visits columns 0..3 and rows 0..1: label 1 left, label 2 right.
QImage twoClusterLabels()
{
    return labelImage({{1, 1, 2, 2, 0}, {1, 1, 2, 2, 0}, {0, 0, 0, 0, 0}});
}

} // namespace

class TestRegionGrowing : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { qunsetenv("PX_CORE_COUNT"); }

    void candidateTenPercentRule_data();
    void candidateTenPercentRule();
    void graph_data();
    void graph();
    void merging_data();
    void merging();
    void secondPassKeepsLargeClustersApart();
    void runRelabelsAndRebuildsClusters();
    void outOfRangeLabelsAreIgnored();
};

void TestRegionGrowing::candidateTenPercentRule_data()
{
    QTest::addColumn<QList<int>>("samples");
    QTest::addColumn<bool>("enough");
    QTest::addColumn<double>("strength");

    QTest::newRow("1 in 10 is not enough") << QList<int>{50, 0, 0, 0, 0, 0, 0, 0, 0, 0} << false << 0.0;
    QTest::newRow("2 in 10") << QList<int>{50, 0, 0, 0, 0, 0, 0, 0, 0, 20} << true << 35.0;
    QTest::newRow("negative counts as a sample only") << QList<int>{-5, 4, 0} << true << 4.0;
    QTest::newRow("mean of non-zero") << QList<int>{1, 2, 4} << true << 7.0 / 3.0;
}

void TestRegionGrowing::candidateTenPercentRule()
{
    QFETCH(QList<int>, samples);
    QFETCH(bool, enough);
    QFETCH(double, strength);
    PXRegionGrowingEdgeCandidate candidate;
    for (int sample : samples)
        candidate.addEdge(sample);
    QCOMPARE(candidate.numberOfEdges(), samples.size());
    QCOMPARE(candidate.hasEnoughEdges(), enough);
    QCOMPARE(candidate.normalizedAverageEdgeStrength(), strength);
}

void TestRegionGrowing::graph_data()
{
    QTest::addColumn<QImage>("labels");
    QTest::addColumn<QImage>("edges");
    QTest::addColumn<QByteArray>("cores");
    QTest::addColumn<EdgeMap>("expected");

    // Each side of the boundary samples its own pixels; the last row
    // (strength 200) lies outside the scanned part of the lasso rectangle.
    QTest::newRow("two labels")
        << labelImage({{1, 1, 1, 2, 2, 2}, {1, 1, 1, 2, 2, 2}, {1, 1, 1, 2, 2, 2}, {1, 1, 1, 2, 2, 2}})
        << edgeImage({{0, 0, 10, 0, 0, 0}, {0, 0, 20, 0, 0, 0}, {0, 0, 30, 9, 0, 0}, {0, 0, 200, 200, 0, 0}})
        << QByteArray("1") << EdgeMap{{{1, 2}, 20.0}, {{2, 1}, 9.0}};

    // Labels 0 and -1 are neither visited nor neighbours; the last row and
    // column are never visited (their strength 250 would show), though they
    // are seen as neighbours. More cores than labels still cover them all.
    const QImage labels = labelImage({{1, 1, 2, 2, 2}, {1, 1, 2, 2, 2}, {3, 3, 3, 0, 2}, {3, 3, -1, -1, 2},
        {1, 3, 3, 3, 3}});
    const QImage edges = edgeImage({{10, 10, 20, 20, 250}, {10, 10, 20, 20, 250}, {30, 30, 30, 0, 250},
        {30, 30, 0, 0, 250}, {250, 250, 250, 250, 250}});
    const EdgeMap expected{{{1, 2}, 10.0}, {{1, 3}, 10.0}, {{2, 1}, 20.0}, {{2, 3}, 20.0},
        {{3, 1}, 30.0}, {{3, 2}, 30.0}};
    for (const char* cores : {"1", "3", "9"})
        QTest::newRow(QByteArray("three labels, ") + cores + " cores") << labels << edges << QByteArray(cores)
                                                                     << expected;
}

void TestRegionGrowing::graph()
{
    QFETCH(QImage, labels);
    QFETCH(QImage, edges);
    QFETCH(QByteArray, cores);
    QFETCH(EdgeMap, expected);
    qputenv("PX_CORE_COUNT", cores);
    QList<PXSuperPixel> records{superPixel(0, 0, 0, 1)};
    for (int label = 1; label <= 3; ++label)
        records.append(superPixel(10 * label, 10 * label, 10 * label, 5));
    std::unique_ptr<PXImage> image(workingImage(labels.size()));
    PXRegionGrowing growing;
    growing.setup(image.get(), rectPath(QRectF(QPointF(0, 0), labels.size())), edges, 0.0);
    growing.setClusterData(records, labels);
    growing.createGraph();
    QCOMPARE(edgeMap(growing.edges()), expected);
}

// Cluster 1 (colour 100/100/100) borders cluster 2 (1000 pixels) along a
// boundary of uniform strength: the first pass merges by colour and strength,
// the second by the minimum size.
void TestRegionGrowing::merging_data()
{
    QTest::addColumn<QSize>("photo");
    QTest::addColumn<int>("pixels");
    QTest::addColumn<QList<int>>("colour");
    QTest::addColumn<int>("strength");
    QTest::addColumn<double>("threshold");
    QTest::addColumn<bool>("merged");
    const auto row = [](const char* name, QSize photo, int pixels, const QList<int>& colour,
                         int strength, double threshold, bool merged) {
        QTest::newRow(name) << photo << pixels << colour << strength << threshold << merged;
    };

    // Too far apart in colour for the first pass; 200 x 200 gives a minimum
    // of 8, raised to 25.
    const QList<int> far = {200, 100, 100};
    row("40000: 24 px", {200, 200}, 24, far, 0, 0.0, true);
    row("40000: 25 px", {200, 200}, 25, far, 0, 0.0, false);
    row("4000000: 399 px", {2000, 2000}, 399, far, 0, 0.0, true);
    row("4000000: 400 px", {2000, 2000}, 400, far, 0, 0.0, false);
    // Strength below max(1, threshold) defers; at or above it two clusters of
    // at least 25 pixels stay apart.
    row("threshold 0: strength 1 stays", {1000, 1000}, 30, far, 1, 0.0, false);
    row("threshold 2: strength 1 defers", {1000, 1000}, 30, far, 1, 2.0, true);

    // Both large: only the first pass can merge them.
    row("4/7/7 merges", {5, 3}, 500, {104, 93, 107}, 0, 0.0, true);
    row("luminance 5 blocks", {5, 3}, 500, {105, 100, 100}, 0, 0.0, false);
    row("cr 8 blocks", {5, 3}, 500, {100, 100, 108}, 0, 0.0, false);
    row("strength 4 below 5", {5, 3}, 500, {100, 100, 100}, 4, 0.0, true);
    row("strength 5 not below 5", {5, 3}, 500, {100, 100, 100}, 5, 3.0, false);
    row("strength at threshold", {5, 3}, 500, {100, 100, 100}, 10, 10.0, false);
}

void TestRegionGrowing::merging()
{
    QFETCH(QSize, photo);
    QFETCH(int, pixels);
    QFETCH(QList<int>, colour);
    QFETCH(int, strength);
    QFETCH(double, threshold);
    QFETCH(bool, merged);
    const QImage labels = twoClusterLabels();
    std::unique_ptr<PXImage> image(workingImage(photo));
    PXRegionGrowing growing;
    growing.setup(image.get(), rectPath(QRectF(0, 0, 5, 3)), uniformEdgeImage(labels.size(), strength),
        threshold);
    growing.setClusterData({superPixel(0, 0, 0, 1), superPixel(100, 100, 100, pixels),
                               superPixel(colour.at(0), colour.at(1), colour.at(2), 1000)},
        labels);
    growing.createGraph();
    growing.segmentGraph();
    QCOMPARE(growing.findParent(1) == growing.findParent(2), merged);
    QCOMPARE(growing.numberOfClusters(), merged ? 2 : 3);
    if (merged)
        QCOMPARE(growing.size(growing.findParent(1)), pixels + 1000);
}

// B | A | C with A small: A joins B along the weaker boundary first, and the
// deferred edge A-C then links two large clusters, which must stay apart.
void TestRegionGrowing::secondPassKeepsLargeClustersApart()
{
    const QImage labels = labelImage({{2, 2, 1, 1, 3, 3}, {2, 2, 1, 1, 3, 3}});
    const QImage edges = edgeImage({{0, 0, 0, 1, 1, 0}, {0, 0, 0, 1, 1, 0}});
    std::unique_ptr<PXImage> image(workingImage(QSize(1000, 1000)));
    PXRegionGrowing growing;
    growing.setup(image.get(), rectPath(QRectF(0, 0, 7, 3)), edges, 5.0);
    growing.setClusterData({superPixel(0, 0, 0, 1), superPixel(20, 20, 20, 150),
                               superPixel(120, 20, 20, 1000), superPixel(220, 20, 20, 1000)},
        labels);
    growing.createGraph();
    growing.segmentGraph();
    QCOMPARE(growing.findParent(1), growing.findParent(2));
    QVERIFY(growing.findParent(1) != growing.findParent(3));
    QCOMPARE(growing.size(growing.findParent(1)), 1150);
}

// Labels 3, 1, 2 appear in that raster order; 1 and 4 merge (same colour,
// no edge). The new labels are 1..N by first appearance, 0 outside.
void TestRegionGrowing::runRelabelsAndRebuildsClusters()
{
    const QImage labels = labelImage({{3, 3, 1, 1, 0}, {3, 3, 1, 4, 0}, {2, 2, 2, 4, -1}, {2, 2, 2, 4, 0}});
    QImage ycbcr(labels.size(), QImage::Format_ARGB32);
    ycbcr.fill(qRgb(0, 128, 128));
    // Cluster 1 + 4 (new label 2): Y 10, 20, 30, 40, 50 at (2,0) (3,0) (2,1) (3,1) (3,2).
    const QList<QPoint> merged{{2, 0}, {3, 0}, {2, 1}, {3, 1}, {3, 2}, {3, 3}};
    for (int i = 0; i < merged.size(); ++i)
        ycbcr.setPixel(merged.at(i), qRgb(10 * qMin(i + 1, 5), 128, 128));
    PXImage image(ycbcr, ycbcr, QFileInfo());

    PXRegionGrowing growing;
    QSignalSpy progress(&growing, &PXRegionGrowing::increaseProgress);
    growing.setup(&image, rectPath(QRectF(0, 0, 5, 4)), uniformEdgeImage(labels.size(), 0), 0.0);
    growing.setClusterData({superPixel(0, 0, 0, 1), superPixel(30, 128, 128, 100),
                               superPixel(200, 10, 10, 100), superPixel(100, 200, 200, 100),
                               superPixel(30, 128, 128, 100)},
        labels);
    growing.run();
    QCOMPARE(progress.count(), 5);

    QCOMPARE(growing.labels(), labelImage({{1, 1, 2, 2, 0}, {1, 1, 2, 2, 0}, {3, 3, 3, 2, 0}, {3, 3, 3, 2, 0}}));
    const QList<PXSuperPixel> records = growing.superPixelInformations();
    QCOMPARE(records.size(), 4);
    // Six pixels count as seven: Y (10+20+30+40+50+50) / 7 = 28.57 -> 29,
    // x (2+3+2+3+3+3) / 7 -> 2, y (0+0+1+1+2+3) / 7 -> 1.
    QCOMPARE(records.at(2).pixelCount(), 7);
    QCOMPARE(records.at(2).averageYCbCr(), PXYCbCr(29, 110, 110));
    QCOMPARE(records.at(2).xCenter(), 2);
    QCOMPARE(records.at(2).yCenter(), 1);
    QCOMPARE(growing.superPixelPoints().value(2), merged);

    // Key 0 stands for the outside and holds every cluster that touches it.
    const QHash<int, QSet<int>> neighbours = growing.neighbors();
    QCOMPARE(neighbours.value(0), (QSet<int>{2}));
    QCOMPARE(neighbours.value(2), (QSet<int>{0, 1, 3}));
    QCOMPARE(neighbours.size(), 4);
}

// Labels beyond the record list must not be read out of bounds.
void TestRegionGrowing::outOfRangeLabelsAreIgnored()
{
    const QImage labels = labelImage({{1, 1, 7, 7}, {1, 1, 7, 7}, {2, 2, 2, 2}});
    std::unique_ptr<PXImage> image(workingImage(labels.size()));
    PXRegionGrowing growing;
    growing.setup(image.get(), rectPath(QRectF(-100, -100, 1e12, 1e12)), uniformEdgeImage(labels.size(), 0),
        0.0);
    growing.setClusterData({superPixel(0, 0, 0, 1), superPixel(5, 5, 5, 4), superPixel(5, 5, 5, 4)}, labels);
    growing.run();
    QCOMPARE(edgeMap(growing.edges()).keys(), (QList<QPair<int, int>>{{1, 2}, {2, 1}}));
    QCOMPARE(growing.labels(), labelImage({{1, 1, 0, 0}, {1, 1, 0, 0}, {1, 1, 1, 1}}));
}

QTEST_MAIN(TestRegionGrowing)
#include "tst_regiongrowing.moc"
