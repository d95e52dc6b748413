#pragma once

#include <QtGlobal>

#include <algorithm>
#include <utility>

// The registry's own small vector: 16-bit count, capacity and maximum (0 = unbounded), growth by 8
// records, refusal at the maximum, and two flag bits: fixed storage that never grows, and "sorted",
// cleared by every append.
template <typename T> class Vector
{
public:
    static constexpr quint16 kGrowBy = 8;

    explicit Vector(quint16 maximum = 0) : m_maximum(maximum) {}
    // Uses caller-owned storage of this capacity and never grows beyond it.
    Vector(T *storage, quint16 capacity)
        : m_data(storage), m_capacity(capacity), m_maximum(capacity), m_fixed(true)
    {
    }
    ~Vector()
    {
        if (!m_fixed)
            delete[] m_data;
    }
    Vector(const Vector &other) : m_maximum(other.m_maximum), m_sorted(other.m_sorted) { copyFrom(other); }
    Vector &operator=(const Vector &other)
    {
        if (this != &other) {
            clear();
            m_maximum = other.m_maximum;
            m_sorted = other.m_sorted;
            copyFrom(other);
        }
        return *this;
    }

    quint16 count() const { return m_count; }
    quint16 capacity() const { return m_capacity; }
    quint16 maximum() const { return m_maximum; }
    bool isFixed() const { return m_fixed; }
    bool isSorted() const { return m_sorted; }
    bool isEmpty() const { return m_count == 0; }

    const T &at(int i) const { return m_data[i]; }
    T &operator[](int i) { return m_data[i]; }
    const T &operator[](int i) const { return m_data[i]; }
    T *begin() { return m_data; }
    T *end() { return m_data + m_count; }
    const T *begin() const { return m_data; }
    const T *end() const { return m_data + m_count; }

    // False when the record is refused: the maximum is reached or fixed storage is full.
    bool append(const T &value)
    {
        if (m_count == m_capacity && !grow())
            return false;
        m_data[m_count++] = value;
        m_sorted = false;
        return true;
    }
    void removeAt(int i)
    {
        if (i < 0 || i >= m_count)
            return;
        std::move(m_data + i + 1, m_data + m_count, m_data + i);
        --m_count;
        m_data[m_count] = T();
    }
    void clear()
    {
        if (m_fixed) {
            std::fill(m_data, m_data + m_count, T());
        } else {
            delete[] m_data;
            m_data = nullptr;
            m_capacity = 0;
        }
        m_count = 0;
    }
    template <typename Less> void sort(Less less)
    {
        std::sort(begin(), end(), less);
        m_sorted = true;
    }

private:
    bool grow()
    {
        if (m_fixed)
            return false;
        const int limit = m_maximum ? int(m_maximum) : 0xFFFF;
        if (m_capacity >= limit)
            return false;
        const quint16 capacity = quint16(std::min(int(m_capacity) + kGrowBy, limit));
        T *data = new T[capacity];
        std::move(m_data, m_data + m_count, data);
        delete[] m_data;
        m_data = data;
        m_capacity = capacity;
        return true;
    }
    void copyFrom(const Vector &other)
    {
        // A copy owns its records, even of fixed storage.
        m_fixed = false;
        m_capacity = other.m_count;
        m_data = m_capacity ? new T[m_capacity] : nullptr;
        std::copy(other.begin(), other.end(), m_data);
        m_count = other.m_count;
    }

    T *m_data = nullptr;
    quint16 m_count = 0;
    quint16 m_capacity = 0;
    quint16 m_maximum = 0;
    bool m_fixed = false;
    bool m_sorted = false;
};
