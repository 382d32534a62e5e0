#include "PXMatte.h"

#include <QtTest>

#include <cmath>
#include <optional>

namespace {

// A photo blending two flat colours by @p truth (Format_Grayscale8 alpha);
// the lower half's background is @p lowerBackground when given.
QImage compose(const QImage& truth, QRgb object, QRgb background, std::optional<QRgb> lowerBackground = {})
{
    QImage photo(truth.size(), QImage::Format_ARGB32);
    for (int y = 0; y < truth.height(); ++y) {
        const QRgb behind = lowerBackground && y >= truth.height() / 2 ? *lowerBackground : background;
        for (int x = 0; x < truth.width(); ++x) {
            const double a = truth.constScanLine(y)[x] / 255.0;
            const auto mix = [a](int f, int b) { return int(std::lround(a * f + (1 - a) * b)); };
            photo.setPixel(x, y,
                qRgb(mix(qRed(object), qRed(behind)), mix(qGreen(object), qGreen(behind)),
                    mix(qBlue(object), qBlue(behind))));
        }
    }
    return photo;
}

// Alpha falling linearly from 255 to 0 over @p ramp columns centred on x = 40,
// or a crisp step there when @p ramp is 0.
QImage verticalEdge(int ramp, const QSize& size = QSize(80, 60))
{
    QImage truth(size, QImage::Format_Grayscale8);
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            const double t = ramp ? (x + 0.5 - (40 - ramp / 2.0)) / ramp : (x < 40 ? 0.0 : 1.0);
            truth.scanLine(y)[x] = uchar(std::lround(255 * std::clamp(1.0 - t, 0.0, 1.0)));
        }
    }
    return truth;
}

QImage hardOf(const QImage& truth)
{
    QImage mask = truth.copy();
    for (int y = 0; y < mask.height(); ++y)
        for (int x = 0; x < mask.width(); ++x)
            mask.scanLine(y)[x] = mask.scanLine(y)[x] >= 128 ? 255 : 0;
    return mask;
}

int largestDifference(const QImage& a, const QImage& b)
{
    int largest = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x)
            largest = std::max(largest, std::abs(a.scanLine(y)[x] - b.scanLine(y)[x]));
    return largest;
}

PXMatte matteOf(const QImage& photo, const QImage& mask, int bandRadius = 10)
{
    PXMatte matte;
    PXMatteOptions options;
    options.bandRadius = bandRadius;
    matte.setOptions(options);
    matte.setPhoto(photo);
    matte.setMask(mask);
    return matte;
}

} // namespace

class TestMatte : public QObject
{
    Q_OBJECT

private slots:
    void recoversEdges_data();
    void recoversEdges();
    void foregroundColoursLoseTheBackground();
    void smallMaskScalesWithoutStairs();
    void sameForAnyCoreCount();
    void cancelled();
    void badInput();
};

void TestMatte::recoversEdges_data()
{
    QTest::addColumn<int>("ramp");
    QTest::addColumn<QRgb>("object");
    QTest::addColumn<QRgb>("background");
    QTest::addColumn<QRgb>("lowerBackground");
    QTest::addColumn<int>("tolerance");
    // The ramps lie within the band's reach of 10. A crisp edge must stay
    // crisp: exact, up to rounding.
    QTest::newRow("crisp") << 0 << qRgb(200, 60, 40) << qRgb(30, 80, 160) << qRgb(30, 80, 160) << 1;
    QTest::newRow("ramp 4") << 4 << qRgb(200, 60, 40) << qRgb(30, 80, 160) << qRgb(30, 80, 160) << 4;
    QTest::newRow("ramp 12") << 12 << qRgb(240, 230, 200) << qRgb(20, 40, 30) << qRgb(20, 40, 30) << 4;
    QTest::newRow("ramp 16, low contrast")
        << 16 << qRgb(120, 110, 100) << qRgb(80, 90, 100) << qRgb(80, 90, 100) << 12;
    // Where the background changes colour, the mean of the pixels round an
    // edge pixel is neither colour behind it.
    QTest::newRow("ramp 8, two backgrounds")
        << 8 << qRgb(200, 60, 40) << qRgb(30, 80, 160) << qRgb(40, 200, 60) << 4;
}

void TestMatte::recoversEdges()
{
    QFETCH(int, ramp);
    QFETCH(QRgb, object);
    QFETCH(QRgb, background);
    QFETCH(QRgb, lowerBackground);
    QFETCH(int, tolerance);
    const QImage truth = verticalEdge(ramp);
    PXMatte matte = matteOf(compose(truth, object, background, lowerBackground), hardOf(truth));
    QVERIFY(matte.run());
    QCOMPARE(matte.alpha().format(), QImage::Format_Grayscale8);
    QCOMPARE(matte.alpha().size(), truth.size());
    QVERIFY2(largestDifference(matte.alpha(), truth) <= tolerance,
        qPrintable(QString::number(largestDifference(matte.alpha(), truth))));
}

void TestMatte::foregroundColoursLoseTheBackground()
{
    const QRgb object = qRgb(220, 180, 40), background = qRgb(20, 60, 200);
    const QImage truth = verticalEdge(10);
    PXMatte matte = matteOf(compose(truth, object, background), hardOf(truth));
    QVERIFY(matte.run());
    const QImage cut = matte.foreground();
    QCOMPARE(cut.format(), QImage::Format_ARGB32);
    for (int x = 0; x < cut.width(); ++x) {
        const QRgb c = cut.pixel(x, 30);
        QCOMPARE(qAlpha(c), int(matte.alpha().scanLine(30)[x]));
        // Where the object shows at all its colour is the object's, not a blend.
        if (qAlpha(c) >= 26) {
            QVERIFY2(std::abs(qRed(c) - qRed(object)) <= 8 && std::abs(qGreen(c) - qGreen(object)) <= 8
                    && std::abs(qBlue(c) - qBlue(object)) <= 8,
                qPrintable(QStringLiteral("x %1: %2").arg(x).arg(c, 8, 16)));
        }
    }
}

void TestMatte::smallMaskScalesWithoutStairs()
{
    // A diagonal edge cut at a quarter of the size: the matte follows the photo's edge.
    QImage truth(160, 160, QImage::Format_Grayscale8);
    for (int y = 0; y < 160; ++y)
        for (int x = 0; x < 160; ++x)
            truth.scanLine(y)[x] = x + y < 160 ? 255 : 0;
    const QImage small = hardOf(truth).scaled(40, 40, Qt::IgnoreAspectRatio, Qt::FastTransformation);
    PXMatte matte = matteOf(compose(truth, qRgb(250, 250, 250), qRgb(10, 10, 10)), small);
    QVERIFY(matte.run());
    QCOMPARE(matte.alpha().size(), truth.size());
    QVERIFY(largestDifference(matte.alpha(), truth) <= 1);
}

void TestMatte::sameForAnyCoreCount()
{
    // A noisy photo and a blob mask, tall enough for several strips.
    QImage truth(120, 300, QImage::Format_Grayscale8);
    QImage photo(truth.size(), QImage::Format_RGB32);
    quint32 seed = 7;
    for (int y = 0; y < truth.height(); ++y) {
        for (int x = 0; x < truth.width(); ++x) {
            const double r = std::hypot(x - 60.0, (y - 150.0) / 2.0);
            truth.scanLine(y)[x] = r < 40 ? 255 : 0;
            seed = seed * 1664525u + 1013904223u;
            photo.setPixel(x, y, r < 40 + (seed >> 30) ? qRgb(200, 120 + (seed >> 28), 60) : qRgb(40, 60 + (seed >> 27), 90));
        }
    }
    PXMatte matte = matteOf(photo, truth);
    QVERIFY(matte.run());
    const QImage parallel = matte.foreground();
    QThreadPool::globalInstance()->setMaxThreadCount(1);
    QVERIFY(matte.run());
    QThreadPool::globalInstance()->setMaxThreadCount(QThread::idealThreadCount());
    QCOMPARE(matte.foreground(), parallel);
}

void TestMatte::cancelled()
{
    const QImage truth = verticalEdge(6, QSize(80, 300));
    PXMatte matte = matteOf(compose(truth, qRgb(255, 0, 0), qRgb(0, 0, 255)), hardOf(truth));
    int steps = 0;
    matte.setProgressFunction([&steps]() { ++steps; });
    QVERIFY(matte.run());
    QCOMPARE(steps, PXMatte::progressSteps);
    matte.setCancelFunction([]() { return true; });
    QVERIFY(!matte.run());
    QVERIFY(matte.alpha().isNull());
    QVERIFY(matte.foreground().isNull());
}

void TestMatte::badInput()
{
    const QImage truth = verticalEdge(6);
    const QImage photo = compose(truth, qRgb(255, 0, 0), qRgb(0, 0, 255));
    QImage empty(truth.size(), QImage::Format_Grayscale8);
    empty.fill(0);
    QImage full = empty.copy();
    full.fill(255);
    QVERIFY(!matteOf(QImage(), truth).run());
    QVERIFY(!matteOf(photo, QImage()).run());
    QVERIFY(!matteOf(photo, empty).run());
    PXMatte whole = matteOf(photo, full);
    QVERIFY(whole.run());
    QCOMPARE(whole.alpha(), full);
    QImage dot(1, 1, QImage::Format_ARGB32);
    dot.fill(Qt::red);
    QVERIFY(matteOf(dot, dot).run());
    QImage tiny(1, 1, QImage::Format_Grayscale8);
    tiny.fill(255);
    QVERIFY(matteOf(photo, tiny).run()); // a mask of another size is scaled
    matteOf(QImage(3, 500, QImage::Format_Indexed8), verticalEdge(0, QSize(700, 2))).run(); // must not crash
    QVERIFY(matteOf(photo, truth, -5).run());
}

QTEST_GUILESS_MAIN(TestMatte)
#include "tst_matte.moc"
