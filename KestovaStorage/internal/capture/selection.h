// tSelection: the streams that an application selected.
#ifndef KESTOVA_STORAGE_CAPTURE_SELECTION_H
#define KESTOVA_STORAGE_CAPTURE_SELECTION_H

#include <algorithm>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "KestovaStorage/internal/capture/destination.h"
#include "UdpSocket/udpsocket.h"
#include "common/byteorder.h"

namespace pcap
{
class tSelection
{
public:
    // Pairs of dotted address and port. A text that is no address selects nothing, but makes the selection not empty.
    void assign(const std::set<std::pair<std::string, int>>& addressesAndPorts)
    {
        m_empty = addressesAndPorts.empty();
        m_keys.clear();
        for (const auto& [text, port] : addressesAndPorts)
        {
            const std::uint32_t asSent = net::transAddr(text.c_str());
            if (net::transAddr(asSent) == text && port >= 0 && port <= 0xFFFF)
                m_keys.push_back(destination(be::load<std::uint32_t>(&asSent), static_cast<std::uint16_t>(port)));
        }
        std::ranges::sort(m_keys);
    }

    bool empty() const { return m_empty; }
    bool contains(tDestination key) const { return std::ranges::binary_search(m_keys, key); }

private:
    bool m_empty = true;
    std::vector<tDestination> m_keys;
};
}  // namespace pcap

#endif
