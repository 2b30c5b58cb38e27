#include "KestovaRecordings/internal/exports/rosbagmetadata.h"

#include <fmt/format.h>

namespace recordings
{
std::string rosBagMetadata(const mcap::tMcapWriter& file, const std::string& fileName)
{
    const std::uint64_t lasted = file.lastNs() - file.firstNs();
    std::string text = fmt::format("rosbag2_bagfile_information:\n"
                                   "  version: 5\n"
                                   "  storage_identifier: mcap\n"
                                   "  duration:\n"
                                   "    nanoseconds: {}\n"
                                   "  starting_time:\n"
                                   "    nanoseconds_since_epoch: {}\n"
                                   "  message_count: {}\n"
                                   "  topics_with_message_count:\n",
                                   lasted, file.firstNs(), file.messages());
    for (const auto& channel : file.channels())
        text += fmt::format("    - topic_metadata:\n"
                            "        name: {}\n"
                            "        type: {}\n"
                            "        serialization_format: cdr\n"
                            "        offered_qos_profiles: \"\"\n"
                            "      message_count: {}\n",
                            channel.topic, file.schemaName(channel), channel.messages);
    text += fmt::format("  compression_format: \"\"\n"
                        "  compression_mode: \"\"\n"
                        "  relative_file_paths:\n"
                        "    - \"{0}\"\n"
                        "  files:\n"
                        "    - path: \"{0}\"\n"
                        "      starting_time:\n"
                        "        nanoseconds_since_epoch: {1}\n"
                        "      duration:\n"
                        "        nanoseconds: {2}\n"
                        "      message_count: {3}\n",
                        fileName, file.firstNs(), lasted, file.messages());
    return text;
}
}  // namespace recordings
