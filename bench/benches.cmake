# One line a benchmark.
kestova_bench(storage_write)
kestova_bench(storage_open)
kestova_bench(replay_pace)
kestova_bench(storage_start)
kestova_bench(package)
kestova_bench(multicast)
kestova_bench(network_replay)
kestova_bench(replay_twice)
kestova_bench(spoke)
target_sources(spoke_bench PRIVATE ../KestovaStorage/internal/spokebuffer.cpp)  # a room of the library, not exported
find_library(KESTOVA_LIBPCAP pcap)
if(KESTOVA_LIBPCAP)  # only what it is compared with
  kestova_bench(pcap)
  target_sources(pcap_bench PRIVATE pcap_peer.cpp)
  target_link_libraries(pcap_bench PRIVATE "${KESTOVA_LIBPCAP}")
endif()
