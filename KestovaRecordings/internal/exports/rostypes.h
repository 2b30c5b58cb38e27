// The message types of ROS 2 that exports write, as MCAP files describe them.
#ifndef KESTOVA_RECORDINGS_INTERNAL_EXPORTS_ROSTYPES_H
#define KESTOVA_RECORDINGS_INTERNAL_EXPORTS_ROSTYPES_H

#include <string>

#include "KestovaRecordings/internal/mcap/mcapwriter.h"

namespace recordings::ros
{
enum class eType
{
    eUdpPacket,          // udp_msgs/msg/UdpPacket
    eSentence,           // nmea_msgs/msg/Sentence
    eRadarSector,        // marine_sensor_msgs/msg/RadarSector
    eCompressedImage,    // sensor_msgs/msg/CompressedImage
    ePointCloud2,        // sensor_msgs/msg/PointCloud2
    eNavSatFix,          // sensor_msgs/msg/NavSatFix
    eQuaternionStamped,  // geometry_msgs/msg/QuaternionStamped
    eGeoJson             // foxglove_msgs/msg/GeoJSON
};

// Returns the definition, then those of the types that it uses.
mcap::tSchemaText schemaOf(eType type);

// Returns the text as a token of a topic's name: letters, digits and "_", "g_" before a digit.
std::string tokenOf(const std::string& text);
}  // namespace recordings::ros

#endif
