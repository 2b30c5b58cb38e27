// The yardstick of pcap_bench; apart because libpcap has a struct of the name that is our namespace.
#ifndef KESTOVA_BENCH_PCAP_PEER_H
#define KESTOVA_BENCH_PCAP_PEER_H

#include <cstdint>
#include <string>

// Goes through a capture with pcap_next_ex. The bytes of all records with their heads; 0 where it cannot be opened.
std::uint64_t addUpWithLibpcap(const std::string& path);

#endif
