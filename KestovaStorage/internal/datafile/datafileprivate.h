// The implementation behind storage::tDataFile.
#ifndef KESTOVA_STORAGE_DATAFILE_DATAFILEPRIVATE_H
#define KESTOVA_STORAGE_DATAFILE_DATAFILEPRIVATE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "KestovaStorage/internal/datafile/datafilereader.h"
#include "KestovaStorage/internal/datafile/finetimes.h"
#include "KestovaStorage/internal/datafile/segmentreader.h"

namespace storage
{
class tDataFilePrivate
{
public:
    static constexpr std::size_t cWindow = 256 * 1024;  // files are mostly read from front to back

    // Looked at when they are asked for first.
    tFineTimes& fineTimes();

    std::unique_ptr<tDataFileReader> m_reader;  // null while nothing is open
    std::string m_path;
    std::uint64_t m_payloadBytes = 0;
    std::optional<tFineTimes> m_fineTimes;
    tSegmentReader m_segments{cWindow};
};
}  // namespace storage

#endif
