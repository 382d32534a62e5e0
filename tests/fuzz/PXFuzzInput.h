#pragma once

// Reads a fuzz input front to back; past its end every read gives 0.

#include <QByteArray>
#include <QImage>
#include <QPainterPath>

#include <algorithm>
#include <cstddef>
#include <cstdint>

class PXFuzzInput
{
public:
    PXFuzzInput(const uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}

    bool has(std::size_t count) const { return m_size - m_position >= count; }
    unsigned byte() { return has(1) ? m_data[m_position++] : 0u; }
    unsigned word() { return byte() | byte() << 8; }

    /** @p bytes long: the rest of the input repeated, or zeros when none is left. */
    QByteArray repeatedRest(qsizetype bytes) const
    {
        QByteArray result(bytes, '\0');
        for (qsizetype i = 0; m_size > m_position && i < bytes; ++i)
            result[i] = char(m_data[m_position + std::size_t(i) % (m_size - m_position)]);
        return result;
    }

    /**
     * A closed polygon: a byte for the number of points, then 4 bytes a
     * point, x and y in quarter pixels from -64.
     */
    QPainterPath lasso()
    {
        QPolygonF polygon;
        for (unsigned count = byte(); count > 0 && has(4); --count)
            polygon << QPointF(word() / 4.0 - 64, word() / 4.0 - 64);
        QPainterPath path;
        path.addPolygon(polygon);
        path.closeSubpath();
        return path;
    }

    QImage image(int width, int height, QImage::Format format) const
    {
        QImage photo(width, height, format);
        const QByteArray pixels = repeatedRest(photo.sizeInBytes());
        std::copy(pixels.cbegin(), pixels.cend(), photo.bits());
        return photo;
    }

private:
    const uint8_t* m_data;
    std::size_t m_size;
    std::size_t m_position = 0;
};
