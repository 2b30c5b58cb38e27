# One line a benchmark.
kestova_bench(storage_write)
kestova_bench(storage_open)
kestova_bench(replay_pace)
kestova_bench(replay_fine)
kestova_bench(replay_fast)
kestova_bench(storage_start)
kestova_bench(package)
kestova_bench(multicast)
if(TARGET kestova)  # it runs the tool
  kestova_bench(multicast_record)
  add_dependencies(multicast_record_bench kestova)
endif()
if(TARGET kestova)  # it runs the tool
  kestova_bench(diff)
  add_dependencies(diff_bench kestova)
endif()
kestova_bench(network_replay)
kestova_bench(replay_twice)
kestova_bench(spoke rooms)
find_library(KESTOVA_LIBPCAP pcap)
if(KESTOVA_LIBPCAP)  # the yardstick alone uses it
  kestova_bench(pcap)
  target_sources(pcap_bench PRIVATE pcap_peer.cpp)
  target_link_libraries(pcap_bench PRIVATE "${KESTOVA_LIBPCAP}")
endif()
if(TARGET kestova_sessions)  # the simulated radar makes its data
  find_package(fmt REQUIRED)
  kestova_bench(compress rooms)
  target_link_libraries(compress_bench PRIVATE kestova_sessions)
endif()
find_package(ZLIB)  # what the codec is compared with (scripts/setup --bench); nothing else links it
if(ZLIB_FOUND AND TARGET kestova_sessions)  # the simulated radar makes its data
  find_package(fmt REQUIRED)
  kestova_bench(huffman rooms)
  target_link_libraries(huffman_bench PRIVATE kestova_sessions ZLIB::ZLIB)
endif()
