#include "KestovaRecordings/sentencereader.h"

#include <algorithm>
#include <string>
#include <vector>

#include "KestovaRecordings/internal/aismessage.h"
#include "KestovaRecordings/internal/sentencefields.h"
#include "KestovaRecordings/internal/sentencetypes.h"

namespace recordings
{
namespace
{
constexpr std::size_t cLongestLine = 1024;
constexpr std::string_view cDatagramHead("UdPbC\0", 6);  // of IEC 61162-450, with its zero
constexpr std::size_t cFragmentSlots = 32, cMostFragments = 9;

// The fragments of AIS messages until they are complete. A slot that is needed is taken from the message that has
// waited longest.
class tFragments
{
public:
    // What the fields of a VDM or VDO say; `payload` is valid until the next call.
    struct tPart
    {
        unsigned total, number;
        std::string_view group;  // type, sequence number and channel: what the fragments of a message have in common
        std::string_view payload;
        bool valid;  // its sum is there and right
    };
    struct tWhole
    {
        std::string payload;
        bool valid = true;  // all parts
    };
    // Returns the whole payload when the last fragment came in its order, null before.
    const tWhole* add(const tPart& part)
    {
        if (part.number == 1)
            begin(part.group);
        tSlot* const slot = find(part.group);
        if (slot == nullptr || part.number != slot->next || part.total > cMostFragments)
            return nullptr;
        ++slot->next;
        slot->whole.payload.append(part.payload);
        slot->whole.valid = slot->whole.valid && part.valid;
        if (part.number != part.total)
            return nullptr;
        slot->next = 0;
        return &slot->whole;
    }

private:
    struct tSlot
    {
        std::string group;
        tWhole whole;
        unsigned next = 0;  // number of the fragment that comes next; 0: free
        std::uint64_t begun = 0;
    };
    tSlot* find(std::string_view group)
    {
        const auto slot = std::find_if(m_slots.begin(), m_slots.end(),
                                       [&](const tSlot& one) { return one.next != 0 && one.group == group; });
        return slot != m_slots.end() ? &*slot : nullptr;
    }
    void begin(std::string_view group)
    {
        tSlot* slot = find(group);
        if (slot == nullptr && m_slots.size() < cFragmentSlots)
            slot = &m_slots.emplace_back();
        if (slot == nullptr)
            slot = &*std::min_element(m_slots.begin(), m_slots.end(), [](const tSlot& a, const tSlot& b) {
                return std::pair(a.next != 0, a.begun) < std::pair(b.next != 0, b.begun);
            });
        slot->group = group;
        slot->whole.payload.clear();
        slot->whole.valid = true;
        slot->next = 1;
        slot->begun = ++m_begun;
    }

    std::vector<tSlot> m_slots;
    std::uint64_t m_begun = 0;
};

std::optional<unsigned> hexDigits(std::string_view text)
{
    unsigned value = 0;
    for (const char c : text)
    {
        const bool digit = c >= '0' && c <= '9', upper = c >= 'A' && c <= 'F', lower = c >= 'a' && c <= 'f';
        if (!digit && !upper && !lower)
            return std::nullopt;
        value = value << 4 | static_cast<unsigned>(digit ? c - '0' : (c & ~0x20) - 'A' + 10);
    }
    return value;
}

bool isAddress(std::string_view text)
{
    return text.size() >= 4 && text.size() <= 8 && std::all_of(text.begin(), text.end(), [](char c) {
               return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
           });
}

// A line: what is summed, and whether its sum is there and right.
struct tLine
{
    std::string_view body;
    bool hasSum, sumIsRight;
};
tLine lineIn(std::string_view text)
{
    const std::size_t star = text.find('*');
    const std::string_view body = text.substr(0, star);
    const auto given =
        star != std::string_view::npos && text.size() - star >= 3 ? hexDigits(text.substr(star + 1, 2)) : std::nullopt;
    unsigned sum = 0;
    for (const char c : body)
        sum ^= static_cast<unsigned char>(c);
    return {body, star != std::string_view::npos, given == sum};
}
}  // namespace

class tSentenceReader::tPrivate
{
public:
    void read(std::string_view message, std::uint64_t timeMs, iSentenceSink& sink)
    {
        if (message.substr(0, cDatagramHead.size()) == cDatagramHead)
            message.remove_prefix(cDatagramHead.size());
        while (!message.empty())
        {
            const std::size_t end = message.find_first_of("\r\n");
            const std::string_view line = withoutTags(message.substr(0, end));
            if (!line.empty() && line.size() <= cLongestLine && (line[0] == '$' || line[0] == '!'))
                readLine(line, timeMs, sink);
            message.remove_prefix(end == std::string_view::npos ? message.size() : end + 1);
        }
    }

private:
    // Tag blocks stand before a sentence, each between two "\".
    static std::string_view withoutTags(std::string_view line)
    {
        while (!line.empty() && line[0] == '\\')
        {
            const std::size_t end = line.find('\\', 1);
            line.remove_prefix(end == std::string_view::npos ? line.size() : end + 1);
        }
        return line;
    }

    void readLine(std::string_view text, std::uint64_t timeMs, iSentenceSink& sink)
    {
        const tLine line = lineIn(text.substr(1));
        const tSentenceFields fields(line.body);
        const std::string_view address = fields.text(0);
        if (!isAddress(address))
            return;
        sink.onLine(text, line.hasSum && line.sumIsRight);
        tSentence sentence;
        const std::size_t talker = address.size() - 3;
        sentence.talker = address.substr(0, talker);
        sentence.type = address.substr(talker);
        sentence.valid = line.sumIsRight;
        const bool isAis = text[0] == '!' && (sentence.type == "VDM" || sentence.type == "VDO");
        if (line.hasSum && !line.sumIsRight)
            sink.onSentence(sentence);  // what it says is not to be trusted
        else if (!isAis || readAis(fields, sentence))
        {
            if (!isAis)
                readSentenceType(fields, timeMs, sentence);
            sink.onSentence(sentence);
        }
    }

    // Returns whether the message is complete.
    bool readAis(const tSentenceFields& fields, tSentence& sentence)
    {
        const unsigned total = fields.whole(1).value_or(0), number = fields.whole(2).value_or(0);
        const unsigned fillBits = std::min(fields.whole(6).value_or(0), 5u);
        if (total == 0 || number == 0 || number > total)
            return true;
        if (total == 1)
        {
            readAisMessage(fields.text(5), fillBits, sentence);
            return true;
        }
        m_group.assign(sentence.type).append(fields.text(3)).append(",").append(fields.text(4));
        const tFragments::tWhole* const whole =
            m_fragments.add({total, number, m_group, fields.text(5), sentence.valid});
        if (whole == nullptr)
            return false;
        sentence.valid = whole->valid;
        readAisMessage(whole->payload, fillBits, sentence);
        return true;
    }

    tFragments m_fragments;
    std::string m_group;
};

tSentenceReader::tSentenceReader() : d(new tPrivate) {}
tSentenceReader::~tSentenceReader() = default;
tSentenceReader::tSentenceReader(tSentenceReader&&) noexcept = default;
tSentenceReader& tSentenceReader::operator=(tSentenceReader&&) noexcept = default;

void tSentenceReader::read(std::string_view message, std::uint64_t timeMs, iSentenceSink& sink)
{
    d->read(message, timeMs, sink);
}
}  // namespace recordings
