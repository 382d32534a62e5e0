#pragma once

#include <QImage>
#include <QString>

/**
 * A PNG writer for large pictures, over libpng. Qt's spends most of its time
 * trying every row filter (about 4 s for a 35 MP picture, whatever the
 * compression); this one asks for the Sub filter and the fastest compression
 * level and streams the rows, so a 50 MP picture takes a second or two.
 * Files are larger, and read by any PNG reader.
 */
namespace PXFastPng {

/**
 * Writes @p image to @p path: 8-bit RGBA when it has an alpha channel
 * (straight, not premultiplied), 8-bit RGB otherwise. On failure returns
 * false and sets @p error; a partly written file may remain.
 */
bool write(const QImage& image, const QString& path, QString* error);

} // namespace PXFastPng
