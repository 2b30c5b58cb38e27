#include "KestovaRecordings/sheet.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string_view>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/internal/sheetfile.h"
#include "KestovaRecordings/internal/sheetformat.h"
#include "KestovaRecordings/internal/sheetreader.h"
#include "KestovaStorage/companions.h"

namespace recordings
{
namespace
{
constexpr std::size_t cBeginning = 4096;

// The bytes of a file, in pieces, for the parser.
class tFileText
{
public:
    class tIterator
    {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = char;
        using difference_type = std::ptrdiff_t;
        using pointer = const char*;
        using reference = char;

        explicit tIterator(tFileText* text) : m_text(text) {}
        char operator*() const { return m_text->m_piece[m_text->m_at]; }
        tIterator& operator++()
        {
            if (++m_text->m_at == m_text->m_piece.size())
                m_text->readOn();
            return *this;
        }
        bool operator==(const tIterator& other) const { return atEnd() == other.atEnd(); }

    private:
        bool atEnd() const { return m_text == nullptr || m_text->m_piece.empty(); }

        tFileText* m_text;
    };

    explicit tFileText(const tDescriptor& file) : m_file(file) { readOn(); }
    tIterator begin() { return tIterator(this); }
    tIterator end() const { return tIterator(nullptr); }

private:
    // Not beyond the limit, even if the file grows.
    void readOn()
    {
        m_pos += m_piece.size();
        m_piece.resize(std::min<std::size_t>(std::size_t(64) << 10, cSheetSizeLimit - m_pos));
        m_piece.resize(m_file.readAt(m_piece.data(), m_piece.size(), m_pos));
        m_at = 0;
    }

    const tDescriptor& m_file;
    std::string m_piece;
    std::size_t m_at = 0, m_pos = 0;
};

template <typename tBegin, typename tEnd>
bool parse(tBegin begin, tEnd end, tSheetReader& reader)
{
    const bool whole = nlohmann::json::sax_parse(begin, end, &reader);
    return whole && reader.fits();
}

void readWhole(const tSheetFile& file, tSheetReader& reader, std::string& problem)
{
    problem = file.problem();
    if (!problem.empty())
        return;
    tFileText text(file.file());
    if (!parse(text.begin(), text.end(), reader))
        problem = reader.problem();
}

// A text that ends within its first 4 KiB is to be whole.
void readBeginningOf(const tSheetFile& file, tSheetReader& reader, std::string& problem)
{
    problem = file.problem();
    if (!problem.empty())
        return;
    char text[cBeginning];
    const std::size_t len = file.file().readAt(text, sizeof text, 0);
    const bool whole = nlohmann::json::sax_parse(text, text + len, &reader);
    const bool cutByUs = file.size() > len && reader.errorAt() >= len;
    if (!whole && cutByUs)
        reader.forgive();
    if (!reader.fits())
        problem = reader.problem();
}

// Sets the state, and a reason unless the sheet is the file's.
template <typename tFound>
void judge(tFound& found, const std::string& dataFile, const tDataFileBeginning& beginning, const tSheet& sheet,
           const std::string& problem)
{
    const bool ours = problem.empty() && belongs(sheet.first, sheet.form, sheet.finished, beginning);
    if (ours)
        found.state = eSheetState::eOurs;
    else
        found.state = problem.empty() ? eSheetState::eForeign : eSheetState::eDamaged;
    if (!ours)
        found.reason = shown(storage::sheetName(dataFile)) + ' ' +
                       (problem.empty() ? std::string("belongs to another data file") : problem);
}

tSheetSummary summaryOf(const tSheetFile& file, const std::string& dataFile, const tDataFileBeginning& beginning)
{
    tSheetSummary found;
    tSheetReader reader(true);
    std::string problem;
    readBeginningOf(file, reader, problem);
    const tSheet& sheet = reader.parts().sheet;
    judge(found, dataFile, beginning, sheet, problem);
    if (!found)
        return found;
    found.kept = sheet.kept;
    found.finished = sheet.finished;
    found.cut = sheet.cut;
    found.notesOnly = sheet.notesOnly;
    found.notes = reader.parts().notes;
    found.lost = reader.parts().lost;
    found.records = sheet.records;
    found.bytes = sheet.bytes;
    found.firstMs = sheet.firstMs;
    found.lastMs = sheet.lastMs;
    found.carried = sheet.carried;
    found.id = sheet.id;
    found.form = sheet.form;
    found.first = sheet.first;
    found.radarSerial = sheet.radarSerial;
    found.radarId = sheet.radarId;
    return found;
}
}  // namespace

tFoundSheet readSheet(const std::string& dataFile)
{
    tFoundSheet found;
    const tSheetFile file(storage::sheetName(dataFile));
    if (!file.exists())
        return found;
    tSheetReader reader(false);
    std::string problem;
    readWhole(file, reader, problem);
    judge(found, dataFile, readBeginning(dataFile), reader.parts().sheet, problem);
    if (found)
        found.sheet = std::move(reader.parts().sheet);
    return found;
}

tSheet parseSheet(const std::string& json)
{
    tSheetReader reader(false);
    if (!parse(json.begin(), json.end(), reader))
        throw tFailure("the text " + reader.problem());
    return std::move(reader.parts().sheet);
}

tSheetSummary readSheetSummary(const std::string& dataFile)
{
    const tSheetFile file(storage::sheetName(dataFile));
    return file.exists() ? summaryOf(file, dataFile, readBeginning(dataFile)) : tSheetSummary();
}

tSheetSummary readSheetSummaryIn(int folder, const std::string& name, const tDataFileBeginning& beginning)
{
    const tSheetFile file(folder, storage::sheetName(name));
    return file.exists() ? summaryOf(file, name, beginning) : tSheetSummary();
}
}  // namespace recordings
