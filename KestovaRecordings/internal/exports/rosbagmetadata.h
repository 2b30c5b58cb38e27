// metadata.yaml, which makes a folder with an MCAP file a bag for `ros2 bag`.
#ifndef KESTOVA_RECORDINGS_INTERNAL_EXPORTS_ROSBAGMETADATA_H
#define KESTOVA_RECORDINGS_INTERNAL_EXPORTS_ROSBAGMETADATA_H

#include <string>

#include "KestovaRecordings/internal/mcap/mcapwriter.h"

namespace recordings
{
// `fileName` is that of the finished file, in the same folder.
std::string rosBagMetadata(const mcap::tMcapWriter& file, const std::string& fileName);
}  // namespace recordings

#endif
