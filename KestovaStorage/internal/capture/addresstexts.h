// tAddressTexts: the dotted texts of addresses that come again and again, without composing them again and again.
#ifndef KESTOVA_STORAGE_CAPTURE_ADDRESSTEXTS_H
#define KESTOVA_STORAGE_CAPTURE_ADDRESSTEXTS_H

#include <array>
#include <cstdint>
#include <string>

#include "KestovaStorage/internal/capture/destination.h"

namespace pcap
{
class tAddressTexts
{
public:
    // Valid until the next call.
    const char* of(std::uint32_t address)
    {
        tEntry& entry = m_entries[address * 0x9E3779B1U >> 24];
        if (entry.address != address || entry.text.empty())
            entry = {address, addressText(address)};
        return entry.text.c_str();
    }

private:
    struct tEntry
    {
        std::uint32_t address = 0;
        std::string text;
    };
    std::array<tEntry, 256> m_entries;
};
}  // namespace pcap

#endif
