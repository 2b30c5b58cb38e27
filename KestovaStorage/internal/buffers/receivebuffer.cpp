#include "KestovaStorage/internal/buffers/receivebuffer.h"

#include <algorithm>
#include <cassert>
#include <cstring>

// Requires room for `count` bytes.
void tReceiveBuffer::tHalf::append(const char* bytes, std::size_t count)
{
    std::memcpy(region.bytes() + end, bytes, count);
    end += count;
}

void tReceiveBuffer::append(const char* bytes, std::size_t len)
{
    if (m_received.room() < len)
        m_received.region.resize(std::max({cUsualSize, 2 * m_received.region.size(), m_received.end + len}));
    m_received.append(bytes, len);
}

void tReceiveBuffer::clear()
{
    m_received.begin = m_received.end = cHeadroom;
}

void tReceiveBuffer::take()
{
    const std::size_t rest = m_parsed.len();
    assert(rest <= cHeadroom);
    m_taken = m_received.len();
    if (m_received.len() <= rest && m_received.len() <= m_parsed.room())
        m_parsed.append(m_received.region.bytes() + m_received.begin, m_received.len());
    else
    {
        m_received.begin -= rest;
        if (rest != 0)
            std::memcpy(m_received.region.bytes() + m_received.begin, bytes(), rest);
        m_received.region.swap(m_parsed.region);
        m_parsed.begin = m_received.begin;
        m_parsed.end = m_received.end;
    }
    m_received.begin = m_received.end = cHeadroom;
}

void tReceiveBuffer::shrinkParsed()
{
    if (m_parsed.region.size() <= cKeptSize)
        return;
    std::memmove(m_parsed.region.bytes() + cHeadroom, bytes(), len());
    m_parsed.end = cHeadroom + len();
    m_parsed.begin = cHeadroom;
    m_parsed.region.resize(cKeptSize);
}

tByteRegion tReceiveBuffer::shrinkReceived()
{
    tByteRegion large;
    if (empty() && m_received.region.size() > cKeptSize)
        large.swap(m_received.region);
    return large;
}
