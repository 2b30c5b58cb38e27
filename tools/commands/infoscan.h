// tInfoScan: reads data files one after the other, for kestova info.
#ifndef KESTOVA_TOOLS_COMMANDS_INFOSCAN_H
#define KESTOVA_TOOLS_COMMANDS_INFOSCAN_H

#include <cstdint>
#include <string>
#include <vector>

#include "KestovaRecordings/streamhistory.h"
#include "KestovaStorage/datafile.h"
#include "tools/shell/stopsignal.h"

namespace tool
{
class tConsole;

struct tFileInfo
{
    std::string path;
    std::string error;  // why it is no data file; empty for a data file
    storage::tFileHeadSymbol kind = storage::cDataFileHead;
    bool readable = true;  // its segments can be read
    bool finished = false;
    std::uint64_t size = 0, records = 0, bytes = 0, damaged = 0;
    std::uint64_t firstMs = 0, lastMs = 0;
    recordings::tStreamHistories streams;
};

struct tTotals
{
    std::uint64_t size = 0, records = 0, bytes = 0, damaged = 0, skipped = 0;
    std::uint64_t firstMs = 0, lastMs = 0;
    recordings::tStreamHistories streams;
};

class tInfoScan
{
public:
    // Silences of `gapMs` or more are gaps.
    tInfoScan(std::uint64_t gapMs, bool withDigest, tConsole& console);

    // Returns false if the user ends the scan early. Throws tFailure if there is no file, or a single one that is no
    // data file.
    bool run(const std::string& path, const std::string& suffix);

    const std::vector<tFileInfo>& files() const { return m_files; }
    const tTotals& totals() const { return m_totals; }

private:
    void enterFolder(const std::string& folder);
    tFileInfo scanFile(const std::string& path);
    void scanRecord(storage::tDataFile& file, std::size_t i, tFileInfo& info);
    void add(tFileInfo info);

    const std::uint64_t m_gapMs;
    const bool m_withDigest;
    tConsole& m_console;
    tStopSignal m_stop;
    std::string m_folder;    // of the present file
    std::string m_position;  // in the progress line
    std::string m_segment;
    std::vector<tFileInfo> m_files;
    tTotals m_totals;
};
}  // namespace tool

#endif
