// tKeyIndex: returns the place of a 64-bit key. A hash table in one block of memory, at most half full; the keys
// stay with their owner. The hash depends on a random number, so that no file can be crafted whose keys
// collide.
#ifndef KESTOVA_STORAGE_CAPTURE_KEYINDEX_H
#define KESTOVA_STORAGE_CAPTURE_KEYINDEX_H

#include <cstdint>
#include <random>
#include <vector>

namespace pcap
{
class tKeyIndex
{
public:
    // Returns the place of `key`; a new key gets the place `fresh`. keyAt(place) returns the key of a place.
    template <typename tKeyAt>
    std::uint32_t placeOf(std::uint64_t key, std::uint32_t fresh, tKeyAt keyAt)
    {
        const std::uint32_t hash = hashOf(key);
        std::size_t slot = hash & (m_slots.size() - 1);
        for (; m_slots[slot].place != cNowhere; slot = (slot + 1) & (m_slots.size() - 1))
            if (m_slots[slot].hash == hash && keyAt(m_slots[slot].place) == key)
                return m_slots[slot].place;
        m_slots[slot] = {hash, fresh};
        if (++m_used * 2 > m_slots.size())
            grow();
        return fresh;
    }

    void clear()
    {
        m_slots.assign(cFirstSlots, tSlot{});
        m_used = 0;
    }

private:
    static constexpr std::uint32_t cNowhere = UINT32_MAX;
    static constexpr std::size_t cFirstSlots = 256;  // always a power of two
    struct tSlot
    {
        std::uint32_t hash = 0, place = cNowhere;
    };

    std::uint32_t hashOf(std::uint64_t key) const
    {
        key = (key ^ m_seed) * 0x9E3779B97F4A7C15;
        key = (key ^ (key >> 32)) * 0xD6E8FEB86659FD93;
        return static_cast<std::uint32_t>(key >> 32);
    }

    void grow()
    {
        std::vector<tSlot> before(m_slots.size() * 2);
        before.swap(m_slots);
        for (const tSlot& moved : before)
        {
            if (moved.place == cNowhere)
                continue;
            std::size_t slot = moved.hash & (m_slots.size() - 1);
            while (m_slots[slot].place != cNowhere)
                slot = (slot + 1) & (m_slots.size() - 1);
            m_slots[slot] = moved;
        }
    }

    const std::uint64_t m_seed = std::uint64_t{std::random_device{}()} << 32 | std::random_device{}();
    std::vector<tSlot> m_slots = std::vector<tSlot>(cFirstSlots);
    std::size_t m_used = 0;
};
}  // namespace pcap

#endif
