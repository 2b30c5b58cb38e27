// tPlainStatistics: what a capture's statistics must show, counted in the plainest way: a row a stream, and an order by
// count that is walked from its end.
#ifndef KESTOVA_TESTS_PLAINSTATISTICS_H
#define KESTOVA_TESTS_PLAINSTATISTICS_H

#include <map>
#include <string>
#include <vector>

#include "support/pcapreaderfixture.h"

class tPlainStatistics
{
public:
    void count(const tFrame& frame, const std::string& kind)
    {
        std::size_t i = 0;
        while (i < m_rows.size() && (m_rows[i].address != frame.to || m_rows[i].port != static_cast<int>(frame.port)))
            ++i;
        if (i == m_rows.size())
            m_rows.emplace_back(frame.to, static_cast<int>(frame.port));
        pcap::tUdpMulticast& row = m_rows[i];
        erase(m_order, static_cast<int>(row.count), static_cast<int>(i));
        m_order.emplace(++row.count, static_cast<int>(i));
        row.types.insert(kind);
        const int length = static_cast<int>(frame.payload.size());
        int occurrences = 0;
        for (const auto& [times, known] : row.lengths)
            occurrences = known == length ? times : occurrences;
        erase(row.lengths, occurrences, length);
        row.lengths.emplace(occurrences + 1, length);
    }
    tLines texts() const
    {
        tLines texts;
        for (auto entry = m_order.rbegin(); entry != m_order.rend(); ++entry)
            texts.push_back(rowText(m_rows[static_cast<std::size_t>(entry->second)]));
        return texts;
    }

private:
    static void erase(std::multimap<int, int>& from, int key, int value)
    {
        for (auto entry = from.begin(); entry != from.end(); ++entry)
            if (entry->first == key && entry->second == value)
                return void(from.erase(entry));
    }
    std::vector<pcap::tUdpMulticast> m_rows;
    std::multimap<int, int> m_order;
};

#endif
