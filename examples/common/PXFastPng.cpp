#include "PXFastPng.h"

#include <QFile>
#include <QtEndian>

#include <vector>
#include <zlib.h>

namespace PXFastPng {

namespace {

bool writeChunk(QFile& file, const char* type, const uchar* data, quint32 size)
{
    uchar head[8];
    qToBigEndian(size, head);
    std::copy(type, type + 4, head + 4);
    uLong crc = crc32(0, head + 4, 4);
    if (size > 0)
        crc = crc32(crc, data, size);
    uchar tail[4];
    qToBigEndian(quint32(crc), tail);
    return file.write(reinterpret_cast<const char*>(head), 8) == 8
        && (size == 0 || file.write(reinterpret_cast<const char*>(data), size) == qint64(size))
        && file.write(reinterpret_cast<const char*>(tail), 4) == 4;
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
    const int channels = alpha ? 4 : 3;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        *error = QStringLiteral("cannot write %1: %2").arg(path, file.errorString());
        return false;
    }
    uchar header[13];
    qToBigEndian(quint32(source.width()), header);
    qToBigEndian(quint32(source.height()), header + 4);
    header[8] = 8;              // bits per channel
    header[9] = alpha ? 6 : 2;  // RGBA or RGB
    header[10] = header[11] = header[12] = 0;
    bool ok = file.write("\x89PNG\r\n\x1a\n", 8) == 8 && writeChunk(file, "IHDR", header, sizeof header);

    z_stream stream {};
    ok = ok && deflateInit(&stream, Z_BEST_SPEED) == Z_OK;
    const size_t rowBytes = size_t(source.width()) * channels;
    std::vector<uchar> row(rowBytes + 1);
    std::vector<uchar> out(1 << 20);
    auto drain = [&](int flush) {
        do {
            stream.next_out = out.data();
            stream.avail_out = uInt(out.size());
            if (deflate(&stream, flush) == Z_STREAM_ERROR)
                return false;
            const quint32 produced = quint32(out.size() - stream.avail_out);
            if (produced > 0 && !writeChunk(file, "IDAT", out.data(), produced))
                return false;
        } while (stream.avail_out == 0);
        return true;
    };
    for (int y = 0; ok && y < source.height(); ++y) {
        // Sub filter: each byte minus the same channel of the pixel before.
        const uchar* line = source.constScanLine(y);
        row[0] = 1;
        std::copy(line, line + channels, row.begin() + 1);
        for (size_t i = channels; i < rowBytes; ++i)
            row[i + 1] = uchar(line[i] - line[i - channels]);
        stream.next_in = row.data();
        stream.avail_in = uInt(row.size());
        ok = drain(Z_NO_FLUSH);
    }
    ok = ok && drain(Z_FINISH) && writeChunk(file, "IEND", nullptr, 0);
    deflateEnd(&stream);
    if (!ok)
        *error = QStringLiteral("cannot write %1: %2").arg(path, file.errorString());
    return ok;
}

} // namespace PXFastPng
