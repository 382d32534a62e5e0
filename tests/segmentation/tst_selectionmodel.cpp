// The selection model on crafted label images: each gesture, each step of
// the initial cut, the queries and mementos, without threads.

#include "PXSelectionModel.h"
#include "SegmentationTestSupport.h"

namespace {

// Six 4 x 4 superpixels in an 8 x 12 photo; the top four are the object.
const QImage myLabels = labelImage({"12", "34", "56"}, 4);
const QSet<int> myObject = {1, 2, 3, 4};

PXSelectionModel crafted(const QImage& labels, const QSet<int>& object, const QSet<int>& background,
                         const QHash<int, QSet<int>>& neighbours = {})
{
    QImage photo(labels.size(), QImage::Format_ARGB32);
    photo.fill(Qt::gray);
    PXSelectionModel model;
    model.setPhoto(photo, QFileInfo());
    model.takeSegmentation({labels, {}, pointsOfLabels(labels), neighbours, QPainterPath()});
    model.setMemento(PXMementoSegmentation(QPainterPath(), object, background, maskOf(labels, object),
                                           QImage(), {}, QColor(myMaskColour)));
    return model;
}

} // namespace

class TestSelectionModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void gestureMovesSuperpixels_data();
    void gestureMovesSuperpixels();
    void brushFindsLabelsWithinTruncatedDistance_data();
    void brushFindsLabelsWithinTruncatedDistance();
    void lassoSeparatesInsideFromStraddling_data();
    void lassoSeparatesInsideFromStraddling();
    void voteMovesMostlySurroundedLabels_data();
    void voteMovesMostlySurroundedLabels();
    void colourInversionAndMementos();
};

void TestSelectionModel::gestureMovesSuperpixels_data()
{
    QTest::addColumn<QString>("gesture");
    QTest::addColumn<QPointF>("position");
    QTest::addColumn<QPainterPath>("stroke");
    QTest::addColumn<bool>("isForeground");
    QTest::addColumn<QSet<int>>("background");
    QTest::addColumn<QSet<int>>("object");
    QTest::addColumn<QImage>("mask");

    const QSet<int> rest = {5, 6};
    const auto click = [&](const char* name, QPointF position, const QSet<int>& background,
                           const QSet<int>& object) {
        QTest::newRow(name) << "click" << position << QPainterPath() << false << background << object
                            << maskOf(myLabels, object);
    };
    click("click: object to background", {2, 2}, rest, {2, 3, 4});
    click("click: background to object", {1, 9}, rest, {1, 2, 3, 4, 5});
    click("click: in neither set", {6, 10}, {5}, {1, 2, 3, 4, 6});
    click("click: 3.5 rounds to 4", {3.5, 7.5}, rest, {1, 2, 3, 4, 6});

    const auto paint = [&](const char* name, const QPainterPath& stroke, bool isForeground,
                           const QSet<int>& object) {
        QTest::newRow(name) << "paint" << QPointF() << stroke << isForeground << rest << object
                            << maskOf(myLabels, object);
    };
    // A stroke's last row and column are not read: a 2 x 2 square reads one pixel.
    paint("paint: one pixel moves its superpixel", square(1, 1, 2), false, {2, 3, 4});
    paint("paint: across two superpixels", square(2, 9, 4), true, {1, 2, 3, 4, 5, 6});
    QPainterPath topRows;
    topRows.addRect(0, 0, 8, 5);
    paint("paint: row 4 painted but not read", topRows, false, {3, 4});

    QImage scribbled = maskOf(myLabels, myObject);
    for (const QPoint& pixel : {QPoint(1, 9), QPoint(2, 9), QPoint(1, 10), QPoint(2, 10)})
        scribbled.setPixel(pixel, 0);
    QTest::newRow("scribble keeps the sets") << "scribble" << QPointF() << square(1, 9, 2) << true
                                             << rest << myObject << scribbled;
}

void TestSelectionModel::gestureMovesSuperpixels()
{
    QFETCH(QString, gesture);
    QFETCH(QPointF, position);
    QFETCH(QPainterPath, stroke);
    QFETCH(bool, isForeground);
    QFETCH(QSet<int>, background);
    QFETCH(QSet<int>, object);
    QFETCH(QImage, mask);

    PXSelectionModel model = crafted(myLabels, myObject, background);
    if (gesture == "click")
        model.click(position);
    else if (gesture == "paint")
        model.paintSelection(stroke, isForeground);
    else
        model.scribble(stroke, isForeground);
    QCOMPARE(model.foreground(), object);
    QCOMPARE(model.mask(), mask);
}

void TestSelectionModel::brushFindsLabelsWithinTruncatedDistance_data()
{
    QTest::addColumn<QPoint>("centre");
    QTest::addColumn<int>("radius");
    QTest::addColumn<QSet<int>>("labels");

    QTest::newRow("radius 1 reads the clamped centre") << QPoint(-5, 100) << 1 << QSet<int>{5};
    QTest::newRow("diagonal neighbour at half 1") << QPoint(3, 3) << 2 << QSet<int>{1, 2, 3, 4};
    QTest::newRow("centre off the photo") << QPoint(-10, 3) << 24 << QSet<int>{1, 3, 5};
}

void TestSelectionModel::brushFindsLabelsWithinTruncatedDistance()
{
    QFETCH(QPoint, centre);
    QFETCH(int, radius);
    QFETCH(QSet<int>, labels);

    QCOMPARE(crafted(labelImage({"12", "34", "50"}, 4), {1}, {}).labelsUnderBrush(centre, radius), labels);
}

void TestSelectionModel::lassoSeparatesInsideFromStraddling_data()
{
    QTest::addColumn<QList<QPoint>>("outside");
    QTest::addColumn<QRect>("rect");
    QTest::addColumn<QSet<int>>("inside");
    QTest::addColumn<QSet<int>>("straddling");

    // Label 5 lies only in the rectangle's last row, never visited.
    QTest::newRow("one pixel outside") << QList<QPoint>{{0, 0}} << QRect(0, 0, 4, 4)
                                       << QSet<int>{1, 2, 3, 4} << QSet<int>{1};
    QTest::newRow("last column not visited") << QList<QPoint>{{3, 0}, {3, 1}} << QRect(0, 0, 4, 4)
                                             << QSet<int>{1, 2, 3, 4} << QSet<int>();
    QTest::newRow("zero height") << QList<QPoint>() << QRect(0, 0, 4, 1) << QSet<int>() << QSet<int>();
}

void TestSelectionModel::lassoSeparatesInsideFromStraddling()
{
    QFETCH(QList<QPoint>, outside);
    QFETCH(QRect, rect);
    QFETCH(QSet<int>, inside);
    QFETCH(QSet<int>, straddling);

    const QImage labels = labelImage({"1122", "1122", "3344", "5555"});
    QImage lasso(labels.size(), QImage::Format_ARGB32_Premultiplied);
    lasso.fill(0xFFFFFFFF);
    for (const QPoint& point : outside)
        lasso.setPixel(point, 0xFF000000);
    PXSelectionModel model = crafted(labels, {}, {});
    model.beginCut();
    const auto insideOutside = model.separate(lasso, rect);
    QCOMPARE(insideOutside.first, inside);
    QCOMPARE(insideOutside.second, straddling);

    const QSet<int> object = inside - straddling;
    QCOMPARE(model.assignForeground(insideOutside), object);
    QCOMPARE(model.background(), straddling);
    QCOMPARE(model.mask(), maskOf(labels, object));
}

void TestSelectionModel::voteMovesMostlySurroundedLabels_data()
{
    QTest::addColumn<QSet<int>>("neighbours");
    QTest::addColumn<QSet<int>>("possible");
    QTest::addColumn<bool>("moves");

    // Labels 10.. are background, 20.. object, 30 in neither set.
    QTest::newRow("2 of 4 moves") << QSet<int>{10, 11, 20, 21} << QSet<int>() << true;
    QTest::newRow("3 of 7 stays") << QSet<int>{10, 11, 12, 20, 21, 22, 23} << QSet<int>() << false;
    QTest::newRow("possible background counts") << QSet<int>{10, 30, 21} << QSet<int>{30} << true;
    QTest::newRow("in both counts once") << QSet<int>{10, 20, 21, 22} << QSet<int>{10} << false;
    QTest::newRow("outside counts only when possible") << QSet<int>{0, 10, 20} << QSet<int>() << false;
    QTest::newRow("outside as possible") << QSet<int>{0, 10, 20} << QSet<int>{0} << true;
}

void TestSelectionModel::voteMovesMostlySurroundedLabels()
{
    QFETCH(QSet<int>, neighbours);
    QFETCH(QSet<int>, possible);
    QFETCH(bool, moves);

    // 20 is all background and moves, but the vote does not spread: its
    // neighbour 21 counts it as it was at entry, and stays.
    const QHash<int, QSet<int>> graph = {{1, neighbours}, {20, {10}}, {21, {20, 22}}};
    PXSelectionModel model = crafted(labelImage({"1"}), {1, 20, 21}, {10, 11, 12}, graph);
    QSet<int> expected = {0, 20};
    if (moves)
        expected.insert(1);
    QCOMPARE(model.confirmPossibleBackground(possible), expected);
    QCOMPARE(model.foreground(), QSet<int>({1, 20, 21}) - expected);
    QCOMPARE(model.mask().pixel(0, 0), moves ? myMaskColour : 0u);
}

void TestSelectionModel::colourInversionAndMementos()
{
    PXSelectionModel model = crafted(myLabels, myObject, {5, 6});
    std::unique_ptr<PXMementoSegmentation> withLabels(model.createMemento(true));
    std::unique_ptr<PXMementoSegmentation> withoutLabels(model.createMemento(false));
    QVERIFY(withoutLabels->labels().isNull());

    // Only rgb() is painted: an alpha change is none.
    QVERIFY(!model.setMaskColor(QColor(0, 0, 0, 10)));
    QVERIFY(model.setMaskColor(QColor(255, 0, 0, 40)));
    model.recolour();
    QCOMPARE(model.mask().pixel(1, 9), qRgb(255, 0, 0));
    QCOMPARE(model.mask().pixel(1, 1), 0u);

    model.invert();
    QCOMPARE(model.foreground(), (QSet<int>{5, 6}));
    QCOMPARE(model.mask().pixel(1, 9), 0u);
    QCOMPARE(model.mask().pixel(1, 1), qRgb(255, 0, 0));

    // A newer segmentation, the grid upside down; a memento without labels
    // keeps it and brings back the sets, the mask and its colour.
    const QImage newer = labelImage({"65", "43", "21"}, 4);
    model.setMemento(PXMementoSegmentation(QPainterPath(), {5}, {1}, maskOf(newer, {5}), newer,
                                           pointsOfLabels(newer), QColor(Qt::red)));
    QCOMPARE(model.labelAt(QPoint(0, 0)), 6);
    model.setMemento(*withoutLabels);
    QCOMPARE(model.labelAt(QPoint(0, 0)), 6);
    QCOMPARE(model.mask(), maskOf(myLabels, myObject));
    model.setMemento(*withLabels);
    QCOMPARE(model.labelAt(QPoint(0, 0)), 1);
}

QTEST_MAIN(TestSelectionModel)
#include "tst_selectionmodel.moc"
