#include "KestovaRecordings/internal/fileexamination.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <string_view>
#include <thread>
#include <utility>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/internal/crc32c.h"
#include "KestovaRecordings/internal/flippedbit.h"
#include "KestovaRecordings/internal/microseconds.h"
#include "KestovaRecordings/internal/payloadexamination.h"
#include "KestovaStorage/companions.h"
#include "KestovaStorage/huffmanhead.h"
#include "common/byteorder.h"
#include "common/descriptor.h"

namespace recordings
{
namespace
{
constexpr unsigned cMostThreads = 16;
constexpr int cMostMagicBits = 3;  // by which a damaged magic differs; two magics differ by more than twice as many
constexpr const char* cCodeHead = "code_head";
constexpr std::uint32_t cMagics[] = {storage::cDataFileHead, storage::cHuffmanFileHead};

bool isMagic(std::uint32_t magic)
{
    return std::find(std::begin(cMagics), std::end(cMagics), magic) != std::end(cMagics);
}

std::uint32_t magicOf(const std::string& path)
{
    const tDescriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    std::array<unsigned char, 4> magic{};
    if (file.valid())
        file.readAt(magic.data(), magic.size(), 0);
    return le::load<std::uint32_t>(magic.data());
}

// Returns the form that a file with a wrong magic can have: that of its sheet, or of the magic that is almost the same.
std::uint32_t assumedForm(std::uint32_t magic, const tFoundSheet& sheet)
{
    if (sheet)
        return sheet.sheet.form;
    const auto* const like = std::find_if(std::begin(cMagics), std::end(cMagics), [&](std::uint32_t each) {
        return std::popcount(each ^ magic) <= cMostMagicBits;
    });
    return like != std::end(cMagics) ? *like : 0;
}

class tFileExamination
{
public:
    tFileExamination(const std::string& path, const tExamineOptions& options) : m_path(path), m_options(options) {}

    std::optional<tExaminedFile> run(const std::function<bool(std::uint64_t, std::uint64_t)>& goOn);

private:
    void open();
    void checkHead();
    void blameHeadBit(std::uint64_t bit);
    void checkFineTimes();
    void judge();

    const std::string& m_path;
    const tExamineOptions& m_options;
    bool m_isGrowing = false, m_magicIsWrong = false;
    const tSheet* m_sheet = nullptr;  // with checksums, or null
    tFindingList m_findings;
    tExaminedFile m_examined;
};

std::optional<tExaminedFile> tFileExamination::run(const std::function<bool(std::uint64_t, std::uint64_t)>& goOn)
{
    open();
    m_examined.index = tIndexExamination(*m_examined.file, m_sheet, m_isGrowing, m_findings).run();
    checkHead();
    checkFineTimes();
    if (!m_options.quick &&
        !tPayloadExamination(*m_examined.file, m_examined.index, m_sheet, m_findings).run(m_options.threads, goOn))
        return std::nullopt;
    judge();
    return std::move(m_examined);
}

// A writer that lives is looked for first and the sheet is read before the index: what is not known then is newer.
void tFileExamination::open()
{
    m_isGrowing = storage::isBeingWritten(m_path);
    m_examined.sheet = readSheet(m_path);
    const tFoundSheet& sheet = m_examined.sheet;
    if (sheet && !sheet.sheet.notesOnly)
        m_sheet = &m_examined.sheet.sheet;
    const std::uint32_t magic = magicOf(m_path);
    const std::uint32_t assumed = m_isGrowing ? storage::cDataFileHead : assumedForm(magic, sheet);
    m_examined.file = std::make_unique<storage::tRawDataFile>();
    std::string error;
    if (!m_examined.file->open(m_path, assumed, &error))
        throw tFailure(error);
    m_magicIsWrong = !isMagic(magic) && !(m_isGrowing && magic == 0);
    if (m_magicIsWrong)
        m_findings.addAt("magic", 0, fmt::format("the magic is {:08x}", magic));
    if (sheet.state == eSheetState::eForeign || sheet.state == eSheetState::eDamaged)
        m_findings.addOfFile("sheet", sheet.reason, false);
}

// The first 2048 bytes of a finished file in the form of its sheet.
void tFileExamination::checkHead()
{
    if (m_sheet == nullptr || !m_sheet->headCrc32c || m_sheet->form != m_examined.file->form())
        return;
    std::array<unsigned char, storage::cIndexPos> head{};
    m_examined.file->read(0, head.size(), head.data());
    const std::uint32_t difference = crc32c(0, head.data(), head.size()) ^ *m_sheet->headCrc32c;
    if (difference == 0)
        return;
    if (const auto bit = flippedBit(difference, head.size()))
        return blameHeadBit(*bit);
    const storage::tIndexHead right = storage::fileOrder(
        storage::tIndexHead{static_cast<std::uint32_t>(m_examined.index.count()), m_examined.index.longest});
    std::memcpy(&head[storage::cIndexHeadPos], &right, sizeof right);
    if (crc32c(0, head.data(), head.size()) == *m_sheet->headCrc32c)
        m_findings.addAt("index_head", storage::cIndexHeadPos, "it is not that of the index");
    else
        m_findings.addAt("head", 0, "the checksum of the first 2048 bytes is wrong");
}

void tFileExamination::blameHeadBit(std::uint64_t bit)
{
    const std::uint64_t byte = bit / 8;
    const bool isCompressed = m_examined.file->isCompressed();
    const std::uint64_t codeHead = isCompressed ? sizeof(huffman::tFileHead) : 0;
    const char* kind = "head";
    if (byte < sizeof(std::uint32_t))
        return;  // open() has reported it
    if (byte < codeHead)
        kind = cCodeHead;
    else if (byte >= storage::cIndexHeadPos && byte < storage::cIndexHeadPos + sizeof(storage::tIndexHead))
        kind = "index_head";
    if (kind == cCodeHead)
        m_examined.file->correctBit(byte, static_cast<unsigned>(bit % 8));  // the codes are those of the right head
    const bool isUsed = std::string_view(kind) != "head";
    m_findings.addAt(
        kind, byte,
        fmt::format("bit {} of this byte is flipped{}", bit % 8, isUsed ? "" : "; nothing is there that is needed"),
        isUsed);
}

// What is wrong there is no damage: it costs the microseconds alone.
void tFileExamination::checkFineTimes()
{
    const tExaminedIndex& index = m_examined.index;
    if (m_sheet == nullptr || !m_sheet->fineCrc32c || !m_sheet->finished || !m_sheet->first || index.count() == 0)
        return;
    const storage::tRawRecord first = m_examined.file->record(index.slots.front());
    const tMicroseconds fine(m_path, first.timeMs, m_sheet->first->position, index.count());
    if (!fine)
        return m_findings.addOfFile("fine_times", "the file of fine times is missing or another file's", false);
    const std::uint32_t difference = fine.checksum() ^ *m_sheet->fineCrc32c;
    if (difference == 0)
        return;
    const auto bit = flippedBit(difference, index.count() * storage::cFineTimeSize);
    if (!bit)
        return m_findings.addOfFile("fine_times", "the checksum of the fine times is wrong", false);
    const auto record = static_cast<std::size_t>(*bit / 8 / storage::cFineTimeSize);
    m_findings.add("fine_times",
                   {record, storage::cFineTimesPos + *bit / 8, m_examined.file->record(index.slots[record]).timeMs},
                   fmt::format("bit {} of this byte of the fine times is flipped", *bit % 8), false);
}

void tFileExamination::judge()
{
    tVerifiedFile& verified = m_examined.verified;
    const bool isDamaged = m_findings.hasDamage();
    m_isGrowing = m_isGrowing || (!m_examined.index.finished && storage::isBeingWritten(m_path));
    m_examined.canBeFinished = !m_examined.index.finished && !m_isGrowing && !m_examined.file->isCompressed() &&
                               !m_findings.hasDamageBeside("index_head");
    if (m_isGrowing)
        verified.state = eFileState::eRecording;
    else if (isDamaged)
        verified.state = eFileState::eDamaged;
    else
        verified.state = m_examined.index.finished ? eFileState::eSound : eFileState::eUnfinished;
    verified.path = m_path;
    verified.findings = m_findings.take(verified.moreFindings);
    verified.hasSheet = static_cast<bool>(m_examined.sheet);
    verified.lost = m_examined.sheet ? m_examined.sheet.sheet.losses.sum() : 0;
    if (m_examined.sheet)
        verified.missingOnWire = m_examined.sheet.sheet.losses.missingOnWire;
    verified.records = m_examined.index.count();
    verified.size = m_examined.index.size;
}
}  // namespace

std::optional<tExaminedFile> examineFile(const std::string& path, const tExamineOptions& options,
                                         const std::function<bool(std::uint64_t, std::uint64_t)>& goOn)
{
    return tFileExamination(path, options).run(goOn);
}

unsigned threadsFor(unsigned wanted)
{
    return wanted != 0 ? wanted : std::clamp(std::thread::hardware_concurrency(), 1u, cMostThreads);
}
}  // namespace recordings
