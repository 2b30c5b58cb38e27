#include "bench/pcap_peer.h"

#include <pcap/pcap.h>

std::uint64_t addUpWithLibpcap(const std::string& path)
{
    char error[PCAP_ERRBUF_SIZE];
    pcap_t* const capture = ::pcap_open_offline(path.c_str(), error);
    if (capture == nullptr)
        return 0;
    pcap_pkthdr* head = nullptr;
    const unsigned char* bytes = nullptr;
    std::uint64_t sum = 24;
    while (::pcap_next_ex(capture, &head, &bytes) == 1)
        sum += 16 + head->caplen;
    ::pcap_close(capture);
    return sum;
}
