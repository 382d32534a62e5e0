#include "PXHistogram3DIndex.h"

PXHistogram3DIndex::PXHistogram3DIndex(int first, int second, int third)
    : m_first(first)
    , m_second(second)
    , m_third(third)
{
}

PXHistogram3DIndex::~PXHistogram3DIndex() = default;

bool PXHistogram3DIndex::operator==(const PXHistogram3DIndex& other) const
{
    return m_first == other.m_first && m_second == other.m_second && m_third == other.m_third;
}

uint PXHistogram3DIndex::hash() const
{
    return uint(m_first) + uint(m_second) * 255u + uint(m_third) * 65025u;
}

size_t qHash(const PXHistogram3DIndex& key, size_t seed) noexcept
{
    return size_t(key.hash()) ^ seed;
}
