// A small recording with some bits flipped, verified and recovered. Whatever is flipped, nothing fails. With a sheet
// the damage is found; what was recovered is sound and, behind one flipped bit, was recorded so.
//
// The first byte: bit 0 compressed, bit 1 without a sheet, bit 2 unfinished, bit 3 cut by as many bytes as the second
// byte says. Then three bytes a flip: the place among the bytes of head, index and segments, and the bit.
#include <algorithm>
#include <bit>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/recover.h"
#include "KestovaRecordings/sheet.h"
#include "KestovaRecordings/sheetbuilder.h"
#include "KestovaStorage/datafile.h"
#include "KestovaStorage/datafileconverter.h"
#include "KestovaStorage/datafileformat.h"
#include "KestovaStorage/huffmanhead.h"
#include "support/filebytes.h"
#include "support/recording.h"
#include "support/tempdir.h"
#include "tests/fuzz/fuzz.h"

namespace
{
namespace fs = std::filesystem;
using namespace recordings;

constexpr std::uint32_t cRecords = 12;

const auto cGoOn = [](const tVerifyProgress&) { return true; };

tSegments segmentsMade()
{
    tSegments segments;
    for (std::uint32_t i = 0; i < cRecords; ++i)
        segments.push_back({1'000'000 + 300 * i,
                            i % 5 == 4 ? numberedSegment(i, 30) : makePackage(i, numberedSegment(i, 20 + i % 3))});
    return segments;
}

// The forms of the recording, made once.
class tForms
{
public:
    tForms()
    {
        for (const char* form : {"plain", "packed"})
        {
            fs::create_directory(m_dir.file(form));
            make(m_dir.file(form) + "/r.data");
        }
        std::string result, error;
        require(storage::tDataFileConverter::Compress(m_dir.file("packed/r.data"), ".data", nullptr, &result, &error));
        refreshSheet(result);
    }
    // Makes a copy of a form, alone in its folder; returns its path.
    std::string copy(bool compressed) const
    {
        const std::string folder = m_dir.file("in");
        fs::remove_all(folder);
        fs::remove_all(m_dir.file("out"));
        fs::copy(m_dir.file(compressed ? "packed" : "plain"), folder);
        return folder + (compressed ? "/r.tar.data" : "/r.data");
    }
    std::string out() const { return m_dir.file("out"); }

private:
    static void make(const std::string& path)
    {
        recordByHand(path, segmentsMade());
        tSheetBuilder builder;
        storage::tDataFile file;
        require(file.open(path));
        std::string bytes;
        for (std::size_t i = 0; i < cRecords && file.read(i, bytes); ++i)
            builder.add(file.record(i).timeMs, storage::cNoFineTime, bytes, file.record(i).pos);
        tSheet sheet;
        builder.fill(sheet);
        sealSheet(sheet, path);
        writeSheet(path, sheet);
    }

    tTempDir m_dir;
};

// Returns the place in the file of byte number `place` of what matters in it.
std::uint64_t placeOf(std::uint64_t place, bool compressed, std::uint64_t size)
{
    const std::uint64_t head = compressed ? sizeof(huffman::tFileHead) : sizeof(std::uint32_t);
    const std::uint64_t index = cRecords * storage::cIndexSlotSize, payload = size - storage::cPayloadPos;
    place %= head + sizeof(storage::tIndexHead) + index + payload;
    if (place < head)
        return place;
    if ((place -= head) < sizeof(storage::tIndexHead))
        return storage::cIndexHeadPos + place;
    if ((place -= sizeof(storage::tIndexHead)) < index)
        return storage::cIndexPos + place;
    return storage::cPayloadPos + place - index;
}

// Returns how many bits are different now.
int flip(const std::string& path, std::string_view flips, bool compressed)
{
    constexpr std::size_t cMostFlips = 8;
    std::map<std::uint64_t, unsigned char> masks;
    for (std::size_t i = 0; i < cMostFlips && flips.size() >= 3; ++i)
    {
        const auto place = static_cast<std::uint64_t>(takeByte(flips) << 8 | takeByte(flips));
        masks[placeOf(place, compressed, fs::file_size(path))] ^= static_cast<unsigned char>(1U << takeByte(flips) % 8);
    }
    int different = 0;
    for (const auto& [place, mask] : masks)
    {
        const std::string was = bytesOf(path, place, 1);
        putBytes(path, place, std::string(1, static_cast<char>(was[0] ^ mask)));
        different += std::popcount(mask);
    }
    return different;
}

void recoverAndCompare(const std::string& path, const std::string& out, bool compares)
{
    const tRecoveries done = recoverRecordings({path}, {".data", out, 2}, cGoOn);
    const tSegments made = segmentsMade();
    storage::tDataFile file;
    require(done.files.size() == 1 && file.open(done.files[0].result));
    require(file.recordCount() == done.kept);
    std::string bytes;
    for (std::size_t i = 0; i < file.recordCount() && compares; ++i)
    {
        require(file.read(i, bytes));
        require(std::find(made.begin(), made.end(), tSegment{file.record(i).timeMs, bytes}) != made.end());
    }
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const tForms s_forms;
    std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const unsigned how = takeByte(bytes);
    const bool compressed = how & 1, hasSheet = (how & 2) == 0;
    const std::string path = s_forms.copy(compressed);
    if (!hasSheet)
        fs::remove(fs::path(path).parent_path() / "r.json");
    if ((how & 4) != 0)
        putBytes(path, storage::cIndexHeadPos, std::string(sizeof(storage::tIndexHead), '\0'));
    const std::size_t cut = (how & 8) != 0 ? takeByte(bytes) : 0;
    const int flips = flip(path, bytes, compressed);
    fs::resize_file(path, fs::file_size(path) - std::min<std::uint64_t>(cut, fs::file_size(path)));
    const bool isDamaged = flips != 0 || cut != 0 || (how & 4) != 0;
    try
    {
        const tVerification found = verifyRecordings({path}, {".data", false, 2}, cGoOn);
        require(found.files.size() == 1);
        const tVerifiedFile& file = found.files[0];
        require(!file.hasSheet || !isDamaged || file.state == eFileState::eDamaged);
        recoverAndCompare(path, s_forms.out(), file.hasSheet && flips <= 1 && cut == 0);
    }
    catch (const tFailure& failure)
    {
        // No data file any more, or not one whole record.
        require(std::string_view(failure.what()).find("not sound") == std::string_view::npos);
    }
    return 0;
}
