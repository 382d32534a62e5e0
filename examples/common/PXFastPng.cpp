#include "PXFastPng.h"

#include <QFile>

#include <csetjmp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <png.h>

namespace PXFastPng {

namespace {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// libpng reports errors by longjmp: nothing with a destructor may live
// between setjmp and the calls that can fail, so the rows are plain pointers.
bool writeRows(std::FILE* file, const QImage& source, bool alpha, QString* reason)
{
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
        png_destroy_write_struct(&png, nullptr);
        *reason = QStringLiteral("out of memory");
        return false;
    }
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        *reason = QStringLiteral("write error");
        return false;
    }
    png_init_io(png, file);
    png_set_IHDR(png, info, png_uint_32(source.width()), png_uint_32(source.height()), 8,
        alpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
        PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    // One cheap filter and the fastest level: trying every filter per row is
    // what makes the usual writers slow on big pictures.
    png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_SUB);
    png_set_compression_level(png, 1);
    png_write_info(png, info);
    for (int y = 0; y < source.height(); ++y)
        png_write_row(png, source.constScanLine(y));
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return true;
}

} // namespace

bool write(const QImage& image, const QString& path, QString* error)
{
    if (image.isNull()) {
        *error = QStringLiteral("%1: nothing to write").arg(path);
        return false;
    }
    const bool alpha = image.hasAlphaChannel();
    const QImage source = image.convertToFormat(alpha ? QImage::Format_RGBA8888 : QImage::Format_RGB888);
    const std::unique_ptr<std::FILE, FileCloser> file(std::fopen(QFile::encodeName(path).constData(), "wb"));
    if (!file) {
        *error = QStringLiteral("cannot write %1: %2").arg(path, QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    QString reason;
    if (!writeRows(file.get(), source, alpha, &reason) || std::fflush(file.get()) != 0) {
        *error = QStringLiteral("cannot write %1: %2").arg(path, reason.isEmpty() ? QStringLiteral("write error") : reason);
        return false;
    }
    return true;
}

} // namespace PXFastPng
