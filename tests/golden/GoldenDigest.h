#pragma once

// Digests of the library's outputs and the stored table they are compared with.

#include <QByteArray>
#include <QCryptographicHash>
#include <QFile>
#include <QHash>
#include <QImage>
#include <QList>
#include <QMap>
#include <QPainterPath>
#include <QPoint>
#include <QSet>
#include <QTextStream>

#include <algorithm>
#include <type_traits>

/** A SHA-1 over values fed in a fixed order; sets and hashes are fed sorted. */
class GoldenDigest
{
public:
    template <typename T>
    GoldenDigest& operator<<(const T& value)
    {
        static_assert(std::is_arithmetic_v<T>, "feed plain numbers, or add an overload");
        m_hash.addData(QByteArrayView(reinterpret_cast<const char*>(&value), sizeof value));
        return *this;
    }

    GoldenDigest& operator<<(const QImage& image)
    {
        *this << int(image.format()) << image.width() << image.height();
        const qsizetype rowBytes = (qsizetype(image.width()) * image.depth() + 7) / 8;
        for (int y = 0; y < image.height(); ++y)
            m_hash.addData(QByteArrayView(reinterpret_cast<const char*>(image.constScanLine(y)), rowBytes));
        return *this;
    }

    GoldenDigest& operator<<(const QPoint& point) { return *this << point.x() << point.y(); }

    GoldenDigest& operator<<(const QPainterPath& path)
    {
        *this << path.elementCount() << int(path.fillRule());
        for (int i = 0; i < path.elementCount(); ++i) {
            const QPainterPath::Element element = path.elementAt(i);
            *this << int(element.type) << element.x << element.y;
        }
        return *this;
    }

    template <typename T>
    GoldenDigest& operator<<(const QList<T>& list)
    {
        *this << list.size();
        for (const T& value : list)
            *this << value;
        return *this;
    }

    GoldenDigest& operator<<(const QSet<int>& set)
    {
        QList<int> sorted(set.cbegin(), set.cend());
        std::sort(sorted.begin(), sorted.end());
        return *this << sorted;
    }

    GoldenDigest& operator<<(const QHash<int, QSet<int>>& table)
    {
        QList<int> keys = table.keys();
        std::sort(keys.begin(), keys.end());
        *this << keys.size();
        for (int key : keys)
            *this << key << table.value(key);
        return *this;
    }

    QByteArray hex() const { return m_hash.result().toHex(); }

private:
    QCryptographicHash m_hash {QCryptographicHash::Sha1};
};

/**
 * The stored digests of one kernel, "key digest" a line. Compares, or with
 * PX_GOLDEN_UPDATE=1 collects the digests and writes the file anew.
 */
class GoldenTable
{
public:
    explicit GoldenTable(const QString& fileName)
        : m_fileName(fileName)
        , m_updating(qEnvironmentVariableIntValue("PX_GOLDEN_UPDATE") == 1)
    {
        QFile file(m_fileName);
        if (m_updating || !file.open(QIODevice::ReadOnly | QIODevice::Text))
            return;
        QTextStream in(&file);
        QString key;
        QString digest;
        while (!in.atEnd()) {
            in >> key >> digest;
            if (!key.isEmpty())
                m_stored.insert(key, digest.toLatin1());
        }
    }

    bool updating() const { return m_updating; }

    /** The stored digest of @p key, empty when there is none. */
    QByteArray stored(const QString& key) const { return m_stored.value(key); }

    void record(const QString& key, const QByteArray& digest) { m_stored.insert(key, digest); }

    bool write() const
    {
        QFile file(m_fileName);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Text | QIODevice::Truncate))
            return false;
        QTextStream out(&file);
        for (auto it = m_stored.cbegin(); it != m_stored.cend(); ++it)
            out << it.key() << ' ' << it.value() << '\n';
        return true;
    }

private:
    QString m_fileName;
    bool m_updating;
    QMap<QString, QByteArray> m_stored;
};
