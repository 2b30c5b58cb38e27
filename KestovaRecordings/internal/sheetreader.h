// tSheetReader: takes a sheet apart while a JSON parser goes through it.
//
// Shapes   keys in any order; unknown ones are passed over. Of a known key with another kind of value, of too many
//          entries, or of numbers that cannot be, the sheet is damaged.
// Threads  one at a time.
#ifndef KESTOVA_RECORDINGS_SHEETREADER_H
#define KESTOVA_RECORDINGS_SHEETREADER_H

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KestovaRecordings/internal/jsontext.h"
#include "KestovaRecordings/sheet.h"

namespace recordings
{
// A value of a sheet, or the beginning of an object.
struct tSheetValue
{
    enum eKind
    {
        eBegins,
        eFlag,
        eWhole,     // not negative
        eNegative,  // whole
        eReal,
        eText,
        eOther
    };
    eKind kind = eOther;
    std::uint64_t number = 0;  // its absolute value, of eNegative too
    double real = 0.0;
    bool flag = false;
    const std::string* text = nullptr;
};

// What has been read.
struct tSheetParts
{
    tSheet sheet;
    std::string schema;
    std::uint64_t notes = 0, lost = 0;  // as the beginning counts them
    std::string key;                    // the last one
    bool hasForm = false, hasTime = false, hasPosition = false, hasLength = false;
    std::string name, address;  // of the present stream
    std::uint64_t fromSecond = 0, nextSecond = 0;
    std::size_t seconds = 0;  // of all streams
    std::uint64_t blocks = 0;
    std::optional<std::uint32_t> sumOfSums;
};

// Takes a value to its place. Returns false for one that cannot be.
using tSheetField = bool (*)(tSheetParts&, const tSheetValue&);
// Returns the field of a path such as "notes[].text"; null for one that is passed over.
tSheetField sheetField(const std::string& path);
// Completes the stream that ends. Returns false if its parts cannot be.
bool endSheetStream(tSheetParts& parts);

class tSheetReader final : public nlohmann::json_sax<nlohmann::json>
{
public:
    // With `beginning` it stops where the lists begin.
    explicit tSheetReader(bool beginning) : m_beginning(beginning) {}

    tSheetParts& parts() { return m_parts; }
    // Why the sheet cannot be used; empty if nothing is wrong so far.
    const std::string& problem() const { return m_problem; }
    // Returns after how many bytes the text was no JSON any more; 0 if it always was.
    std::size_t errorAt() const { return m_errorAt; }
    void forgive() { m_problem.clear(); }  // the text was to end there
    // Returns whether the parts of a whole sheet fit together; sets the problem if not.
    bool fits();

    bool null() override { return m_spoke.isOpen() ? takeSpoke("null") : take({}); }
    bool boolean(bool flag) override;
    bool number_integer(number_integer_t number) override;
    bool number_unsigned(number_unsigned_t number) override;
    bool number_float(number_float_t number, const string_t&) override;
    bool string(string_t& text) override;
    bool binary(binary_t&) override { return take({}); }
    bool start_object(std::size_t) override;
    bool key(string_t& name) override;
    bool end_object() override;
    bool start_array(std::size_t) override;
    bool end_array() override;
    bool parse_error(std::size_t position, const std::string&, const nlohmann::detail::exception& error) override;

private:
    bool take(const tSheetValue& value);
    bool isOfThisVersion();
    bool enter();
    void leave();
    void findField();
    bool takeSpoke(std::string_view text);
    bool openSpoke(char bracket);
    bool closeSpoke(char bracket);
    bool fail(const std::string& problem);

    const bool m_beginning;
    tSheetParts m_parts;
    std::string m_problem;
    std::size_t m_errorAt = 0;
    std::string m_path;                  // of the present value: "streams[].per_second.messages[]"
    std::vector<std::size_t> m_lengths;  // of the paths of what encloses it
    tJsonText m_spoke;                   // while it is open, everything is part of it
    tSheetField m_field = nullptr;       // of the present path; null: passed over
};
}  // namespace recordings

#endif
