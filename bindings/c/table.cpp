#include <limits>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "KestovaRecordings/sentencereader.h"
#include "bindings/c/columns.h"
#include "bindings/c/feed.h"
#include "bindings/c/guard.h"

// The columns as C sees them. Texts are kept once each.
struct kestova_table
{
    explicit kestova_table(const binding::tTableKind& kind) : m_columns(kind.columns.size() + 1)
    {
        m_columns[0].name = "time";
        for (std::size_t i = 0; i < kind.columns.size(); ++i)
        {
            const binding::tColumnKind& from = kind.columns[i];
            m_columns[i + 1].name = from.name;
            m_columns[i + 1].kind = &from;
            const int known = from.number ? KESTOVA_DOUBLE : KESTOVA_TEXT;
            m_columns[i + 1].type = from.whole ? KESTOVA_INT64 : known;
        }
    }

    void add(const recordings::tSentence& sentence, std::uint64_t timeMs)
    {
        m_columns[0].whole.push_back(static_cast<std::int64_t>(timeMs));
        for (std::size_t i = 1; i < m_columns.size(); ++i)
            add(sentence, m_columns[i]);
    }
    std::size_t rows() const { return m_columns[0].whole.size(); }
    std::size_t columns() const { return m_columns.size(); }
    void column(std::size_t i, const char** name, int* type, const void** data) const
    {
        const tColumn& column = m_columns[i];
        *name = column.name;
        *type = column.type;
        if (column.type == KESTOVA_INT64)
            *data = column.whole.data();
        else if (column.type == KESTOVA_DOUBLE)
            *data = column.numbers.data();
        else
            *data = column.texts.data();
    }

private:
    struct tColumn
    {
        const char* name = nullptr;
        const binding::tColumnKind* kind = nullptr;
        int type = KESTOVA_INT64;
        std::vector<std::int64_t> whole;
        std::vector<double> numbers;
        std::vector<const char*> texts;
    };
    void add(const recordings::tSentence& sentence, tColumn& column)
    {
        if (column.type == KESTOVA_INT64)
            column.whole.push_back(column.kind->whole(sentence));
        else if (column.type == KESTOVA_DOUBLE)
            column.numbers.push_back(column.kind->number(sentence).value_or(std::numeric_limits<double>::quiet_NaN()));
        else
            column.texts.push_back(kept(column.kind->text(sentence)));
    }
    const char* kept(const std::optional<std::string>& text)
    {
        return text ? m_texts.insert(*text).first->c_str() : nullptr;
    }

    std::vector<tColumn> m_columns;
    std::set<std::string> m_texts;
};

namespace
{
constexpr std::size_t cMostStreams = 256;  // that are read

constexpr std::size_t cTogether = 256;  // messages

bool isBefore(const binding::tMessage& message, int64_t endMs)
{
    return static_cast<std::int64_t>(message.timeMs) < endMs;
}

bool isImage(const recordings::tPackageContents& package)
{
    return package.info.rwType == eImageStream || package.info.rwType == eOriginalImage;
}

class tTableReader final : private recordings::iSentenceSink
{
public:
    explicit tTableReader(const binding::tTableKind& kind) : m_kind(kind), m_table(new kestova_table(kind)) {}

    void read(const binding::tMessage& message)
    {
        if (message.isPackage && isImage(message.package))
            return;
        m_timeMs = message.timeMs;
        const binding::tGroup group(message.package.ip, message.package.port);
        const tStream stream(message.isPackage ? message.package.info.rwType : -1, group);
        if (m_streams.size() < cMostStreams || m_streams.count(stream) != 0)
            m_streams[stream].read(message.package.payload, m_timeMs, *this);
    }
    kestova_table* release() { return m_table.release(); }

private:
    using tStream = std::pair<int, binding::tGroup>;  // of raw segments -1
    void onSentence(const recordings::tSentence& sentence) override
    {
        if (m_kind.isRow(sentence))
            m_table->add(sentence, m_timeMs);
    }

    const binding::tTableKind& m_kind;
    std::unique_ptr<kestova_table> m_table;
    std::map<tStream, recordings::tSentenceReader> m_streams;
    std::uint64_t m_timeMs = 0;
};
}  // namespace

kestova_result kestova_table_read(kestova_recording* recording, const char* name, int64_t start_ms, int64_t end_ms,
                                  kestova_table** out)
{
    return binding::guarded([&] {
        binding::require(recording, "recording");
        binding::require(name, "name");
        binding::require(out, "out");
        const binding::tTableKind* const kind = binding::tableNamed(name);
        if (kind == nullptr)
            throw binding::tError(KESTOVA_NOT_FOUND, std::string("there is no table \"") + name + "\": there are " +
                                                         binding::tableNames());
        if (recording->source->isLive())
            throw binding::tError(KESTOVA_UNSUPPORTED, "a live group has no tables: read its records");
        tTableReader reader(*kind);
        const auto feed = binding::openFeed(*recording->source, {start_ms, end_ms});
        binding::tMessages messages;
        kestova_result result = KESTOVA_OK;
        while ((result = feed->next(messages, cTogether, {})) == KESTOVA_OK && isBefore(messages.front(), end_ms))
            for (const binding::tMessage& message : messages)
                if (!isBefore(message, start_ms) && isBefore(message, end_ms))
                    reader.read(message);
        if (result == KESTOVA_CANCELLED)
            return result;
        *out = reader.release();
        return KESTOVA_OK;
    });
}

size_t kestova_table_rows(const kestova_table* table)
{
    return table != nullptr ? table->rows() : 0;
}

size_t kestova_table_columns(const kestova_table* table)
{
    return table != nullptr ? table->columns() : 0;
}

kestova_result kestova_table_column(const kestova_table* table, size_t column, const char** name, int* type,
                                    const void** data)
{
    return binding::guarded([&] {
        binding::require(table, "table");
        binding::require(name, "name");
        binding::require(type, "type");
        binding::require(data, "data");
        if (column >= table->columns())
            throw binding::tError(KESTOVA_ARGUMENT, "the table has fewer columns");
        table->column(column, name, type, data);
        return KESTOVA_OK;
    });
}

void kestova_table_free(kestova_table* table)
{
    delete table;
}
