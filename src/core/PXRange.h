#pragma once

/**
 * An inclusive integer interval [first, last].
 *
 * A range is valid when last >= first. The pair (0, 0) doubles as "not yet
 * set": expandTo() replaces it instead of widening it, so expanding a fresh
 * range by 5 gives (5, 5).
 *
 * The composite operations go through the virtual ones (operator< calls
 * isValid(), contains(range) and intersects() call contains(value)), so a
 * subclass that overrides isValid() or contains() changes them too.
 *
 * Header-only; instantiated for int. Value type, safe to copy between threads.
 */
template <typename T>
class PXRange
{
public:
    PXRange() = default;
    PXRange(T first, T last) : m_first(first), m_last(last) {}
    virtual ~PXRange() = default;

    PXRange(const PXRange&) = default;
    PXRange& operator=(const PXRange&) = default;

    T first() const { return m_first; }
    T last() const { return m_last; }

    virtual bool operator==(const PXRange& other) const
    {
        return m_first == other.m_first && m_last == other.m_last;
    }

    virtual bool operator!=(const PXRange& other) const { return !(*this == other); }

    // A valid range sorts before an invalid one; an invalid one is never less.
    virtual bool operator<(const PXRange& other) const
    {
        if (isValid() && other.isValid())
            return m_first < other.m_first || (m_first == other.m_first && m_last < other.m_last);
        return isValid();
    }

    virtual void expandTo(const T& value)
    {
        if (m_first == 0 && m_last == 0) {
            m_first = m_last = value;
        } else if (value > m_last) {
            m_last = value;
        } else if (value < m_first) {
            m_first = value;
        }
    }

    // The sum is formed in T, then halved in double and truncated toward zero.
    virtual T center() const { return T(double(m_first + m_last) * 0.5); }

    virtual bool isValid() const { return m_last >= m_first; }

    virtual bool contains(const T& value) const { return m_first <= value && value <= m_last; }

    virtual bool contains(const PXRange& range) const
    {
        return contains(range.m_first) && contains(range.m_last);
    }

    virtual bool intersects(const PXRange& range) const
    {
        return contains(range.m_first) || contains(range.m_last) || range.contains(m_first)
            || range.contains(m_last);
    }

protected:
    T m_first = 0;
    T m_last = 0;
};
