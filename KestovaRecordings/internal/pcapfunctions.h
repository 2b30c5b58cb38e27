// The functions of libpcap that read and write captures.
#ifndef KESTOVA_RECORDINGS_INTERNAL_PCAPFUNCTIONS_H
#define KESTOVA_RECORDINGS_INTERNAL_PCAPFUNCTIONS_H

#include <pcap/pcap.h>

#include "KestovaRecordings/internal/loadedfunction.h"

namespace recordings
{
inline constexpr tLoadedLibrary cPcap{{"libpcap.so.0.8", "libpcap.so.1"}, "captures need libpcap: install libpcap0.8"};

// In this namespace the names are these, not those of the header: nothing is linked.
#define KESTOVA_LOADED(name) inline constinit const tLoadedFunction<cPcap, decltype(::name)> name(#name)
KESTOVA_LOADED(pcap_close);
KESTOVA_LOADED(pcap_datalink);
KESTOVA_LOADED(pcap_datalink_val_to_description);
KESTOVA_LOADED(pcap_dump);
KESTOVA_LOADED(pcap_dump_close);
KESTOVA_LOADED(pcap_dump_file);
KESTOVA_LOADED(pcap_dump_flush);
KESTOVA_LOADED(pcap_dump_fopen);
KESTOVA_LOADED(pcap_fopen_offline);
KESTOVA_LOADED(pcap_geterr);
KESTOVA_LOADED(pcap_next_ex);
KESTOVA_LOADED(pcap_open_dead);
#undef KESTOVA_LOADED
}  // namespace recordings

#endif
