#include "KestovaRecordings/internal/exports/rostypes.h"

#include <algorithm>
#include <string_view>

namespace recordings::ros
{
namespace
{
struct tDefinition
{
    std::string_view name, text;
};

constexpr tDefinition cTime{"builtin_interfaces/Time", "int32 sec\nuint32 nanosec\n"};
constexpr tDefinition cDuration{"builtin_interfaces/Duration", "int32 sec\nuint32 nanosec\n"};
constexpr tDefinition cHeader{"std_msgs/Header", "builtin_interfaces/Time stamp\nstring frame_id\n"};
constexpr tDefinition cQuaternion{"geometry_msgs/Quaternion", "float64 x 0\nfloat64 y 0\nfloat64 z 0\nfloat64 w 1\n"};
constexpr tDefinition cRadarEcho{"marine_sensor_msgs/RadarEcho", "float32[] echoes\n"};
constexpr tDefinition cPointField{"sensor_msgs/PointField", "uint8 INT8=1\nuint8 UINT8=2\nuint8 INT16=3\n"
                                                            "uint8 UINT16=4\nuint8 INT32=5\nuint8 UINT32=6\n"
                                                            "uint8 FLOAT32=7\nuint8 FLOAT64=8\nstring name\n"
                                                            "uint32 offset\nuint8 datatype\nuint32 count\n"};
constexpr tDefinition cNavSatStatus{
    "sensor_msgs/NavSatStatus",
    "int8 STATUS_NO_FIX=-1\nint8 STATUS_FIX=0\nint8 STATUS_SBAS_FIX=1\nint8 STATUS_GBAS_FIX=2\nint8 status\n"
    "uint16 SERVICE_GPS=1\nuint16 SERVICE_GLONASS=2\nuint16 SERVICE_COMPASS=4\nuint16 SERVICE_GALILEO=8\n"
    "uint16 service\n"};

constexpr char cUdpPacket[] = "std_msgs/Header header\nstring address\nuint16 src_port\nuint8[] data\n";
constexpr char cSentence[] = "std_msgs/Header header\nstring sentence\n";
constexpr char cRadarSector[] = "std_msgs/Header header\nfloat32 angle_start\nfloat32 angle_increment\n"
                                "builtin_interfaces/Duration time_increment\nbuiltin_interfaces/Duration scan_time\n"
                                "float32 range_min\nfloat32 range_max\nmarine_sensor_msgs/RadarEcho[] intensities\n";
constexpr char cCompressedImage[] = "std_msgs/Header header\nstring format\nuint8[] data\n";
constexpr char cPointCloud2[] = "std_msgs/Header header\nuint32 height\nuint32 width\n"
                                "sensor_msgs/PointField[] fields\nbool is_bigendian\nuint32 point_step\n"
                                "uint32 row_step\nuint8[] data\nbool is_dense\n";
constexpr char cNavSatFix[] = "std_msgs/Header header\nsensor_msgs/NavSatStatus status\nfloat64 latitude\n"
                              "float64 longitude\nfloat64 altitude\nfloat64[9] position_covariance\n"
                              "uint8 COVARIANCE_TYPE_UNKNOWN=0\nuint8 COVARIANCE_TYPE_APPROXIMATED=1\n"
                              "uint8 COVARIANCE_TYPE_DIAGONAL_KNOWN=2\nuint8 COVARIANCE_TYPE_KNOWN=3\n"
                              "uint8 position_covariance_type\n";
constexpr char cQuaternionStamped[] = "std_msgs/Header header\ngeometry_msgs/Quaternion quaternion\n";

mcap::tSchemaText schema(const char* name, std::string_view text, std::initializer_list<tDefinition> used)
{
    std::string all(text);
    for (const tDefinition& definition : used)
        all.append(std::string(80, '=')).append("\nMSG: ").append(definition.name).append("\n").append(definition.text);
    return {name, "ros2msg", all};
}
}  // namespace

mcap::tSchemaText schemaOf(eType type)
{
    switch (type)
    {
    case eType::eUdpPacket:
        return schema("udp_msgs/msg/UdpPacket", cUdpPacket, {cHeader, cTime});
    case eType::eSentence:
        return schema("nmea_msgs/msg/Sentence", cSentence, {cHeader, cTime});
    case eType::eRadarSector:
        return schema("marine_sensor_msgs/msg/RadarSector", cRadarSector, {cHeader, cTime, cDuration, cRadarEcho});
    case eType::eCompressedImage:
        return schema("sensor_msgs/msg/CompressedImage", cCompressedImage, {cHeader, cTime});
    case eType::ePointCloud2:
        return schema("sensor_msgs/msg/PointCloud2", cPointCloud2, {cHeader, cTime, cPointField});
    case eType::eNavSatFix:
        return schema("sensor_msgs/msg/NavSatFix", cNavSatFix, {cHeader, cTime, cNavSatStatus});
    case eType::eQuaternionStamped:
        return schema("geometry_msgs/msg/QuaternionStamped", cQuaternionStamped, {cHeader, cTime, cQuaternion});
    case eType::eGeoJson:
        break;
    }
    return schema("foxglove_msgs/msg/GeoJSON", "string geojson\n", {});
}

std::string tokenOf(const std::string& text)
{
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    std::string token = text.empty() || isDigit(text[0]) ? "g_" : "";
    for (const char c : text)
    {
        const char next = isDigit(c) || isLetter(c) ? c : '_';
        if (next != '_' || token.empty() || token.back() != '_')  // a name has no "__"
            token += next;
    }
    return token;
}
}  // namespace recordings::ros
