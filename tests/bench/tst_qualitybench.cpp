// The quality bench's geometry: exact distances, areas and outlines, the
// simulated user's choice of where to paint and when to stop, and a hand
// lasso that keeps the distances it was asked for.
#include "PXHandLasso.h"
#include "PXMaskGeometry.h"
#include "PXQualityCutters.h"
#include "PXSimulatedUser.h"

#include <QTest>

#include <climits>
#include <cmath>
#include <random>

namespace {

QImage blank(int w, int h)
{
    QImage mask(w, h, QImage::Format_Grayscale8);
    mask.fill(0);
    return mask;
}

void fill(QImage& mask, const QRect& rect, uchar value = 255)
{
    for (int y = rect.top(); y <= rect.bottom(); ++y)
        for (int x = rect.left(); x <= rect.right(); ++x)
            mask.scanLine(y)[x] = value;
}

QImage disc(int w, int h, QPointF centre, double radius)
{
    QImage mask = blank(w, h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            mask.scanLine(y)[x] = std::hypot(x + 0.5 - centre.x(), y + 0.5 - centre.y()) <= radius ? 255 : 0;
    return mask;
}

// Answers each dot by setting the whole wrong area under it right, as a
// perfect cut would; counts the dots.
class AreaFixer : public PXCutter
{
public:
    AreaFixer(const QImage& truth, const QImage& selection)
        : m_truth(truth)
        , m_selection(selection)
    {
    }
    PXCutAnswer cut(const QImage&, const QPainterPath&) override { return {m_selection}; }
    PXCutAnswer stroke(const QPainterPath& dot, bool object) override
    {
        ++strokes;
        QImage wrong = blank(m_truth.width(), m_truth.height());
        for (int y = 0; y < m_truth.height(); ++y)
            for (int x = 0; x < m_truth.width(); ++x)
                wrong.scanLine(y)[x] = (m_truth.scanLine(y)[x] != 0) != (m_selection.scanLine(y)[x] != 0) ? 255 : 0;
        std::vector<int> labels;
        connectedAreas(wrong, &labels);
        const QPointF middle = dot.boundingRect().center();
        const QPoint centre(int(std::floor(middle.x())), int(std::floor(middle.y())));
        const int label = labels[size_t(centre.y()) * m_truth.width() + centre.x()];
        for (int y = 0; y < m_truth.height(); ++y)
            for (int x = 0; x < m_truth.width(); ++x)
                if (label && labels[size_t(y) * m_truth.width() + x] == label)
                    m_selection.scanLine(y)[x] = object ? 255 : 0;
        return {m_selection};
    }
    int strokes = 0;

private:
    QImage m_truth;
    QImage m_selection;
};

// Signed distance to the set pixels of @p object at each pixel: outside
// positive, inside negative.
std::vector<double> signedDistances(const QImage& object)
{
    QImage outside = object;
    outside.invertPixels();
    const std::vector<float> toObject = squaredDistanceToSet(object);
    const std::vector<float> toOutside = squaredDistanceToSet(outside);
    std::vector<double> distance(toObject.size());
    for (size_t i = 0; i < distance.size(); ++i)
        distance[i] = toObject[i] > 0.0f ? std::sqrt(toObject[i]) : -std::sqrt(toOutside[i]);
    return distance;
}

} // namespace

class TestQualityBench : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void distanceIsExact_data()
    {
        QTest::addColumn<QImage>("mask");
        QImage one = blank(9, 7);
        one.scanLine(3)[4] = 255;
        QTest::newRow("one pixel") << one;
        QImage scattered = blank(37, 23);
        std::mt19937 random(5);
        for (int i = 0; i < 12; ++i)
            scattered.scanLine(int(random() % 23))[random() % 37] = 255;
        QTest::newRow("scattered") << scattered;
        QImage border = blank(20, 3);
        fill(border, QRect(19, 0, 1, 3));
        QTest::newRow("a column at the edge") << border;
    }
    void distanceIsExact()
    {
        QFETCH(QImage, mask);
        const std::vector<float> distance = squaredDistanceToSet(mask);
        for (int y = 0; y < mask.height(); ++y) {
            for (int x = 0; x < mask.width(); ++x) {
                int best = INT_MAX;
                for (int v = 0; v < mask.height(); ++v)
                    for (int u = 0; u < mask.width(); ++u)
                        if (mask.constScanLine(v)[u])
                            best = std::min(best, (u - x) * (u - x) + (v - y) * (v - y));
                QCOMPARE(distance[size_t(y) * mask.width() + x], float(best));
            }
        }
    }

    void areasAreFourConnected()
    {
        QImage mask = blank(10, 8);
        fill(mask, QRect(1, 1, 3, 2)); // 6 pixels
        mask.scanLine(3)[4] = 255; // touches the first only diagonally
        fill(mask, QRect(6, 0, 1, 8)); // a column, 8 pixels
        std::vector<int> labels;
        const QList<PXMaskArea> areas = connectedAreas(mask, &labels);
        // Numbered in reading order of their first pixels.
        QCOMPARE(areas.size(), 3);
        QCOMPARE(areas[0].pixels, 8);
        QCOMPARE(areas[0].bounds, QRect(6, 0, 1, 8));
        QCOMPARE(areas[1].pixels, 6);
        QCOMPARE(areas[1].bounds, QRect(1, 1, 3, 2));
        QCOMPARE(areas[2].pixels, 1);
        QCOMPARE(labels[3 * 10 + 4], 3);
        QCOMPARE(labels[0], 0);
    }

    void borderRunsClockwiseRoundTheOutside_data()
    {
        QTest::addColumn<QImage>("mask");
        QTest::addColumn<QPoint>("start");
        QTest::addColumn<int>("points");
        QImage square = blank(8, 8);
        fill(square, QRect(2, 2, 3, 3));
        QTest::newRow("square") << square << QPoint(2, 2) << 8;
        QImage ring = square;
        ring.scanLine(3)[3] = 0;
        QTest::newRow("hole ignored") << ring << QPoint(2, 2) << 8;
        QImage lone = blank(4, 4);
        lone.scanLine(1)[1] = 255;
        QTest::newRow("lone pixel") << lone << QPoint(1, 1) << 1;
        QImage diagonal = blank(6, 6);
        for (int i = 0; i < 4; ++i)
            diagonal.scanLine(i + 1)[i + 1] = 255;
        QTest::newRow("diagonal line, walked out and back") << diagonal << QPoint(1, 1) << 6;
    }
    void borderRunsClockwiseRoundTheOutside()
    {
        QFETCH(QImage, mask);
        QFETCH(QPoint, start);
        QFETCH(int, points);
        const QList<QPointF> border = outerBorder(mask, start);
        QCOMPARE(border.size(), points);
        QCOMPARE(border.first(), QPointF(start) + QPointF(0.5, 0.5));
        double area = 0.0;
        for (qsizetype i = 0; i < border.size(); ++i) {
            const QPointF a = border[i];
            const QPointF b = border[(i + 1) % border.size()];
            QVERIFY(std::abs(a.x() - b.x()) <= 1.0 && std::abs(a.y() - b.y()) <= 1.0);
            QVERIFY(mask.constScanLine(int(a.y()))[int(a.x())]);
            area += a.x() * b.y() - b.x() * a.y();
        }
        // Clockwise on screen (y down) is a positive shoelace sum.
        QVERIFY(area >= 0.0);
    }

    void userPaintsTheMiddleOfTheLargestWrongArea()
    {
        QImage truth = blank(60, 40);
        fill(truth, QRect(10, 10, 30, 20));
        QImage selection = truth;
        fill(selection, QRect(12, 12, 9, 5), 0); // 45 object pixels left out
        fill(selection, QRect(50, 5, 6, 6)); // 36 background pixels taken in
        std::optional<PXCorrection> correction = nextCorrection(truth, selection);
        QVERIFY(correction);
        QVERIFY(correction->object);
        QCOMPARE(correction->pixels, 45);
        QCOMPARE(correction->centre, QPoint(16, 14));

        fill(selection, QRect(12, 12, 9, 5)); // now the background is the larger
        correction = nextCorrection(truth, selection);
        QVERIFY(correction && !correction->object);
        QCOMPARE(correction->pixels, 36);
        // 6 x 6: the four middle pixels tie, as near their mean; the first in
        // reading order wins.
        QCOMPARE(correction->centre, QPoint(52, 7));

        QVERIFY(!nextCorrection(truth, truth));
    }

    void photoEdgeBordersAnArea()
    {
        // A wrong strip along the left edge: its middle is half its width in,
        // not at the photo's edge.
        const QImage truth = blank(30, 20);
        QImage selection = truth;
        fill(selection, QRect(0, 0, 7, 20));
        const std::optional<PXCorrection> correction = nextCorrection(truth, selection);
        QVERIFY(correction);
        QCOMPARE(correction->centre.x(), 3);
        QCOMPARE(correction->centre.y(), 9);
    }

    void userCountsStrokesUntilGoodEnough()
    {
        // Four wrong areas, 300, 200, 60 and 30 pixels, of a 3000-pixel
        // object: IoU 0.90 after one fix, 0.95 after two.
        QImage truth = blank(120, 80);
        fill(truth, QRect(20, 10, 60, 50));
        QImage selection = truth;
        fill(selection, QRect(20, 10, 30, 10), 0);
        fill(selection, QRect(90, 10, 20, 10));
        fill(selection, QRect(60, 50, 10, 6), 0);
        fill(selection, QRect(90, 60, 10, 3));
        AreaFixer fixer(truth, selection);
        const PXUserRun run = simulateUser(fixer, truth, selection);
        QCOMPARE(run.strokesTo90, 1);
        QCOMPARE(run.strokesTo95, 2);
        QCOMPARE(fixer.strokes, 2);
        QCOMPARE(run.strokeMilliseconds.size(), 2);
    }

    void userGivesUpAfterTheLimit()
    {
        QImage truth = blank(40, 40);
        fill(truth, QRect(5, 5, 30, 30));
        // A cutter that ignores every dot.
        class Deaf : public PXCutter
        {
        public:
            PXCutAnswer cut(const QImage&, const QPainterPath&) override { return {}; }
            PXCutAnswer stroke(const QPainterPath&, bool) override { return {blank(40, 40)}; }
        } deaf;
        const PXUserRun run = simulateUser(deaf, truth, blank(40, 40), 7);
        QCOMPARE(run.strokesTo90, -1);
        QCOMPARE(run.strokesTo95, -1);
        QCOMPARE(run.strokeMilliseconds.size(), 7);
        QCOMPARE(run.finalIou, 0.0);
    }

    void handLassoKeepsItsDistances_data()
    {
        QTest::addColumn<double>("insideShare");
        QTest::newRow("outside all the way") << 0.0;
        QTest::newRow("a tenth inside") << 0.1;
    }
    void handLassoKeepsItsDistances()
    {
        QFETCH(double, insideShare);
        const QImage object = disc(420, 380, QPointF(210, 190), 120);
        const std::vector<double> distances = signedDistances(object);
        PXHandLassoOptions options;
        options.insideShare = insideShare;
        options.points = 1000;
        const QPainterPath lasso = handLasso(object, options);
        QCOMPARE(lasso.elementCount(), options.points + 1); // closed back to the start
        // The pixel grid and the evening out cost about a pixel.
        const double outsideFrom = options.nearest - options.tremor - 1.0;
        const double insideTo = -(options.insideDepth - options.tremor - 1.0);
        int inside = 0;
        int crossing = 0;
        double nearest = 1e9;
        double farthest = 0.0;
        for (int i = 0; i < options.points; ++i) {
            const QPointF point = lasso.elementAt(i);
            const double d = distances[size_t(point.y()) * object.width() + size_t(point.x())];
            QVERIFY2(d > -(options.insideDepth + options.tremor + 1.0), qPrintable(QString::number(d)));
            QVERIFY2(d < options.farthest + options.tremor + 1.0, qPrintable(QString::number(d)));
            inside += d < 0.0;
            crossing += d > insideTo && d < outsideFrom;
            if (d >= outsideFrom) {
                nearest = std::min(nearest, d);
                farthest = std::max(farthest, d);
            }
        }
        // It wanders, and crosses the edge only where it goes in and out.
        QVERIFY2(farthest - nearest > 15.0, qPrintable(QString::number(farthest - nearest)));
        QVERIFY2(crossing <= (insideShare > 0.0 ? options.points / 10 : 0), qPrintable(QString::number(crossing)));
        const double share = double(inside) / options.points;
        QVERIFY2(std::abs(share - insideShare) < 0.02, qPrintable(QString::number(share)));
    }
};

QTEST_GUILESS_MAIN(TestQualityBench)
#include "tst_qualitybench.moc"
