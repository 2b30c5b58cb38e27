// Recordings in the formats of other programs.
#ifndef KESTOVA_RECORDINGS_EXPORTER_H
#define KESTOVA_RECORDINGS_EXPORTER_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "KestovaRecordings/packagecontents.h"
#include "KestovaUtils/spokelayout.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
struct tExportedPackage
{
    const tPackageContents& contents;
    std::uint64_t timeMs;  // when it was recorded, since the Unix epoch
    std::uint64_t timeUs;  // the same, as fine as it is known
};

// What was written: rows of a table, points of a track, messages of a topic.
struct tExportedPart
{
    std::string name;
    std::uint64_t count = 0;
};

// Takes the packages of a recording in the order of their times. What it makes lies under a name of its own beside the
// result until finish(), and is removed where that is never called. One thread at a time. Every operation throws
// tFailure where writing fails.
class KESTOVA_API iExporter
{
public:
    virtual ~iExporter();
    // Returns false if the format has no place for the package.
    virtual bool take(const tExportedPackage& package) = 0;
    // Writes the rest, syncs it and gives it its name. Throws tFailure if the recording holds nothing of the format's.
    virtual void finish() = 0;
    virtual std::vector<tExportedPart> written() const = 0;  // so far
};

using tExporter = std::unique_ptr<iExporter>;

// Return exporters of what the sentences of a recording say. They throw tFailure if the output exists already, or
// cannot be made.
//
// A folder with the tables own.csv, ais.csv, arpa.csv and sentences.csv. The columns are named as `kestova dump
// --decode` names values, after `time_ms`; a value that is not known is an empty field (RFC 4180).
KESTOVA_API tExporter csvExporter(const std::string& folder);
// Own ship's positions as one track of GPX 1.1, a new segment where none came for 60 s.
KESTOVA_API tExporter gpxExporter(const std::string& path);
// The positions of own ship, of AIS stations and of tracked targets: a line each (RFC 7946), cut at 180 degrees. They
// are kept in memory until finish(), 16 bytes each.
KESTOVA_API tExporter geoJsonExporter(const std::string& path);

// The topics of an MCAP file. RADAR is radar_A1_2_1 for A1:2 with the id 1, or by the group where no sheet names it.
struct tMcapTopics
{
    bool raw = true;        // /raw/STREAM/GROUP: the datagrams, byte for byte
    bool sentences = true;  // /sentences: lines
    bool own = true;        // /own/fix, /own/heading
    bool targets = true;    // /targets: once a second at most
    bool sector = true;     // /RADAR/sector: spokes, the values of their cells unchanged
    bool picture = true;    // /RADAR/picture/compressed: each turn
    bool echoes = true;     // /RADAR/echoes: each turn's strong echoes as points

    bool needSpokes() const { return sector || picture || echoes; }
    bool needMeaning() const { return sentences || own || targets || needSpokes(); }
};

struct tMcapOptions
{
    std::string path;  // of a file; with "/" at its end of a folder, which has metadata.yaml beside the file: a bag
    tMcapTopics topics;
    std::vector<utils::tSpokeLayout> layouts;  // of the spokes; without any there are none
    std::vector<std::string> files;            // whose sheets name the radars
    double threshold = 0.5;                    // of full scale, from which a cell is an echo
    bool compress = true;                      // chunks, by zstd
};

// Returns an exporter of the messages of ROS 2 in an MCAP file, which Foxglove and Lichtblick open and `ros2 bag`
// plays: in chunks, with an index, statistics and checksums. Their log_time is the record's, their publish_time the
// package's. Throws as the others. Uses two threads.
KESTOVA_API tExporter mcapExporter(const tMcapOptions& options);

// Returns an exporter of whole turns of the first radar that has spokes, as radar research has them: in a folder
// radar/MICROSECONDS.png, a row a bearing, radar.timestamps, and labels/MICROSECONDS.json with the AIS stations around.
// Throws as the others.
KESTOVA_API tExporter polarExporter(const std::string& folder, std::vector<utils::tSpokeLayout> layouts);
}  // namespace recordings

#endif
