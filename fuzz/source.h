#pragma once

#include <QByteArray>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <mutex>

/// Hands out the bytes of an input as numbers and choices. Once they are used up, everything is 0.
/// Threads: any; each call takes its bytes in one piece.
class Source
{
public:
    Source() = default;
    Source(const std::uint8_t *data, std::size_t size) { reset(data, size); }

    /// The bytes aren't copied.
    void reset(const std::uint8_t *data, std::size_t size)
    {
        std::lock_guard<std::mutex> locker(m_lock);
        m_next = data;
        m_left = size;
    }

    bool isEmpty() const
    {
        std::lock_guard<std::mutex> locker(m_lock);
        return m_left == 0;
    }

    /// A number of any trivial type, in native byte order.
    template <class Number>
    Number take()
    {
        std::lock_guard<std::mutex> locker(m_lock);
        Number number{};
        const std::size_t count = std::min(sizeof number, m_left);
        if (count > 0)
            std::memcpy(&number, m_next, count);
        skip(count);
        return number;
    }

    /// 0 to count - 1, from one byte.
    int choose(int count) { return take<std::uint8_t>() % count; }

    /// True for one byte in so many.
    bool oneIn(int count) { return choose(count) == count - 1; }

    /// Up to so many bytes, as a copy.
    QByteArray bytes(std::size_t most)
    {
        std::lock_guard<std::mutex> locker(m_lock);
        const std::size_t count = std::min(most, m_left);
        QByteArray result(reinterpret_cast<const char *>(m_next), static_cast<int>(count));
        skip(count);
        return result;
    }

private:
    void skip(std::size_t count)
    {
        m_next += count;
        m_left -= count;
    }

    mutable std::mutex m_lock;
    const std::uint8_t *m_next = nullptr;
    std::size_t m_left = 0;
};
