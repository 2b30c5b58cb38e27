// tTrafficTotals: counts the messages of some kinds over one read, and prints the totals at its end.
#ifndef KESTOVA_STORAGE_CAPTURE_TRAFFICTOTALS_H
#define KESTOVA_STORAGE_CAPTURE_TRAFFICTOTALS_H

#include <string_view>

#include "KestovaStorage/internal/capture/datagramkind.h"

namespace pcap
{
class tTrafficTotals
{
public:
    // Counts one payload. Returns false for those that are never delivered: raw spokes (2078 and 2620 bytes) to the
    // spokes' address.
    bool add(eTraffic traffic, std::string_view payload);
    void print(int subErr) const;  // to standard output

private:
    bool addSpoke(std::size_t length);

    int m_lhCtrl = 0, m_lhTtm = 0, m_raTtm = 0, m_ori = 0, m_spoke = 0, m_ins = 0, m_lhIns = 0;
};
}  // namespace pcap

#endif
