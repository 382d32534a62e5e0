#pragma once

#include <QColor>
#include <QImage>
#include <QList>
#include <QPainter>
#include <QPointF>

// 160x120: a 60x60 block of nine coloured squares (20x20 each) centred at
// (80, 60) on grey. The object must be several regions: the cut drops an
// object region at least half surrounded by background, so a single-colour
// shape alone would never survive; the centre square, surrounded by its eight
// neighbours, always does.
inline QImage tilesPhoto()
{
    static const QList<QColor> colours { { 220, 30, 30 }, { 30, 170, 40 }, { 40, 60, 220 }, { 230, 210, 20 },
        { 200, 40, 200 }, { 20, 200, 210 }, { 240, 130, 20 }, { 110, 30, 160 }, { 250, 250, 250 } };
    QImage image(160, 120, QImage::Format_RGB32);
    image.fill(qRgb(128, 128, 128));
    QPainter painter(&image);
    for (int i = 0; i < 9; ++i)
        painter.fillRect(50 + (i % 3) * 20, 30 + (i / 3) * 20, 20, 20, colours.at(i));
    return image;
}

// The lasso round the tiles, with some grey inside it.
inline QList<QPointF> tilesLasso()
{
    return { { 40, 15 }, { 120, 15 }, { 125, 60 }, { 120, 105 }, { 40, 105 }, { 35, 60 } };
}

// The centre square's colour.
inline QRgb tilesCentre()
{
    return qRgb(200, 40, 200);
}
