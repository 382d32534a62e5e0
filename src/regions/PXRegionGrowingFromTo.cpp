#include "PXRegionGrowingFromTo.h"

PXRegionGrowingFromTo::PXRegionGrowingFromTo(int from, int to)
    : m_from(from)
    , m_to(to)
{
}

PXRegionGrowingFromTo::~PXRegionGrowingFromTo() = default;

size_t qHash(const PXRegionGrowingFromTo& key, size_t seed) noexcept
{
    // Unsigned arithmetic wraps like the 32-bit signed sum without overflow.
    const auto value = static_cast<int>(static_cast<unsigned int>(key.to()) * 10000u
        + static_cast<unsigned int>(key.from()));
    return static_cast<size_t>(value) ^ seed;
}
