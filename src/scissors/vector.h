#pragma once

#include <cstdlib>
#include <cstring>
#include <type_traits>

namespace PXScissors {

/**
 * A growable array of trivially copyable elements in plain malloc'd memory.
 *
 * The scissors' containers use it instead of std::vector because it never
 * constructs, destroys or value-initialises elements: growing is a realloc,
 * clearing only resets the size. It lives in the namespace PXScissors so that
 * it never meets std::vector.
 *
 * Growth: appending to a full array sets the capacity to 8 when it was 0 and
 * doubles it otherwise. The destructor frees the array only, never what the
 * elements point to. Not thread-safe; not copyable.
 */
template <typename T>
class vector
{
    static_assert(std::is_trivially_copyable<T>::value, "vector holds plain data only");

public:
    vector() = default;
    ~vector() { release(); }

    vector(const vector&) = delete;
    vector& operator=(const vector&) = delete;

    unsigned long size() const { return m_size; }
    unsigned long capacity() const { return m_capacity; }
    bool isEmpty() const { return m_size == 0; }
    T* data() { return m_data; }
    const T* data() const { return m_data; }

    T& operator[](unsigned long index) { return m_data[index]; }
    const T& operator[](unsigned long index) const { return m_data[index]; }
    T& last() { return m_data[m_size - 1]; }

    /** Appends @p value, growing by the rule above. */
    void append(const T& value)
    {
        if (m_size == m_capacity)
            reallocate(m_capacity == 0 ? 8 : 2 * m_capacity);
        m_data[m_size++] = value;
    }

    /** Removes and returns the last element. Precondition: not empty. */
    T takeLast() { return m_data[--m_size]; }

    /** Drops the last @p count elements. Precondition: count <= size(). */
    void shrinkBy(unsigned long count) { m_size -= count; }

    /** Makes room for at least @p capacity elements; never shrinks. */
    void reserve(unsigned long capacity)
    {
        if (capacity > m_capacity)
            reallocate(capacity);
    }

    /** Sets the size to 0 and keeps the memory. */
    void clear() { m_size = 0; }

    /** Frees the memory and zeroes size, capacity and data. */
    void release()
    {
        std::free(m_data);
        m_data = nullptr;
        m_size = 0;
        m_capacity = 0;
    }

private:
    void reallocate(unsigned long capacity)
    {
        m_data = static_cast<T*>(std::realloc(m_data, capacity * sizeof(T)));
        m_capacity = capacity;
    }

    unsigned long m_size = 0;
    unsigned long m_capacity = 0;
    T* m_data = nullptr;
};

} // namespace PXScissors
