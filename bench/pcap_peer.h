// The yardstick of pcap_bench; a file of its own because libpcap has a struct named like our namespace.
#ifndef KESTOVA_BENCH_PCAP_PEER_H
#define KESTOVA_BENCH_PCAP_PEER_H

#include <cstdint>
#include <string>

// Reads a capture with pcap_next_ex. Returns the bytes of all records with their heads; 0 if it cannot be opened.
std::uint64_t addUpWithLibpcap(const std::string& path);

#endif
