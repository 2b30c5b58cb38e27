#include "KestovaRecordings/recordingcounts.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <filesystem>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/internal/filecounter.h"
#include "KestovaRecordings/internal/persecond.h"

namespace recordings
{
namespace
{
using namespace std::chrono_literals;

constexpr std::uint64_t cMuch = 64 << 20;  // bytes in all files that are worth further threads
constexpr unsigned int cMostThreads = 4;

// Counts files, the next one whenever one is done, on the calling thread and on further ones.
class tCountingThreads
{
public:
    tCountingThreads(const tCountOptions& options, const std::vector<std::string>& files,
                     const std::function<bool(const tCountProgress&)>& goOn)
        : m_files(files), m_suffix(options.suffix), m_layouts(options.layouts), m_goOn(goOn), m_wire(options.layouts),
          m_found(files.size())
    {
        m_options.gapMs = options.gapMs;
        m_options.withDigest = options.withDigest;
        m_options.perSecond = options.perSecond;
        if (!options.layouts.empty())
            m_options.wire = &m_wire;
        m_options.fromSheet = options.layouts.empty() && (!options.withDigest || files.size() == 1);
        m_options.digests = options.withDigest ? &m_digests : nullptr;
    }

    // A file of each path: counted, or why it is not. Both are empty for one that is gone, or was not reached.
    struct tFound
    {
        std::optional<tCountedFile> counted;
        std::string error;
    };

    void run()
    {
        {
            std::vector<std::jthread> others;
            if (!m_options.withDigest && m_options.wire == nullptr && isMuch())
                startHelpers(others);
            countFiles([this](std::size_t file, std::size_t i, std::size_t records) {
                return m_goOn({file + 1, m_files.size(), i, records});
            });
            waitForHelpers();
        }
        if (m_failure)
            std::rethrow_exception(m_failure);
    }

    std::vector<tFound>& found() { return m_found; }
    const std::map<tStreamKey, tDigest>& digests() const { return m_digests; }
    bool complete() const { return !m_cancelled; }

private:
    bool isMuch() const
    {
        std::uint64_t bytes = 0;
        for (const std::string& file : m_files)
            bytes += sizeOnDisk(file);
        return m_files.size() > 1 && bytes >= cMuch;
    }

    void startHelpers(std::vector<std::jthread>& threads)
    try
    {
        const unsigned int most = std::clamp(std::thread::hardware_concurrency(), 1u, cMostThreads);
        for (std::size_t i = 1; i < std::min<std::size_t>(most, m_files.size()); ++i)
        {
            threads.emplace_back([this] { help(); });
            const std::lock_guard lock(m_mutex);
            ++m_helping;
        }
    }
    catch (const std::system_error&)
    {
        // Fewer threads do the same work.
    }

    void help()
    {
        std::exception_ptr failure;
        try
        {
            countFiles([](std::size_t, std::size_t, std::size_t) { return true; });
        }
        catch (...)
        {
            failure = std::current_exception();
            m_cancelled = true;
        }
        const std::lock_guard lock(m_mutex);
        m_failure = failure ? failure : m_failure;
        --m_helping;
        m_changed.notify_all();
    }

    void waitForHelpers()
    {
        std::unique_lock lock(m_mutex);
        while (!m_changed.wait_for(lock, 100ms, [this] { return m_helping == 0; }))
        {
            lock.unlock();
            if (!m_goOn({m_files.size(), m_files.size(), 0, 0}))
                m_cancelled = true;
            lock.lock();
        }
    }

    template <typename tGoOn>
    void countFiles(tGoOn goOn)
    {
        for (std::size_t file; !m_cancelled && (file = m_next++) < m_files.size();)
        {
            const auto present = presentForm(m_files[file], m_files, m_suffix);
            if (!present)
                continue;
            enterFolder(std::filesystem::path(*present).parent_path().string());
            m_found[file].counted =
                countFile(*present, m_options, m_found[file].error, [&](std::size_t i, std::size_t records) {
                    if (!m_cancelled && !goOn(file, i, records))
                        m_cancelled = true;
                    return !m_cancelled.load();
                });
            if (m_options.withDigest && m_found[file].counted && m_found[file].counted->counts.bySheet)
                for (const auto& [key, stream] : m_found[file].counted->counts.streams)
                    m_digests[key] = stream.digest();
        }
    }

    // Numbers of another recording do not go on from those before.
    void enterFolder(const std::string& folder)
    {
        if (m_options.wire != nullptr && std::exchange(m_folder, folder) != folder)
            m_wire = tMissingMessages(m_layouts);
    }

    const std::vector<std::string>& m_files;
    const std::string m_suffix;
    const std::vector<utils::tSpokeLayout>& m_layouts;
    const std::function<bool(const tCountProgress&)>& m_goOn;
    tFileCountOptions m_options;
    std::map<tStreamKey, tDigest> m_digests;  // of one thread
    std::string m_folder;                     // of the present file
    tMissingMessages m_wire;                  // of one thread
    std::vector<tFound> m_found;              // each of the thread that counts the file
    std::atomic<std::size_t> m_next{0};
    std::atomic<bool> m_cancelled{false};
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_helping = 0;             // guarded by m_mutex: threads started, less those that are done
    std::exception_ptr m_failure;  // guarded by m_mutex
};

// Puts the files together in their order.
class tTotal
{
public:
    explicit tTotal(std::uint64_t gapMs) : m_gapMs(gapMs) {}

    void add(tCountedFile counted)
    {
        tFileCounts& counts = counted.counts;
        enterFolder(std::filesystem::path(counts.path).parent_path().string());
        addSums(counts);
        for (const auto& [key, stream] : counts.streams)
            m_result.total.streams[key].append(stream, m_gapMs);
        for (const auto& [key, seconds] : counts.perSecond)
            addSeconds(m_result.total.perSecond[key], seconds);
        m_activity.add(counted.activity);
        m_result.files.push_back(std::move(counts));
    }

    void addDigests(const std::map<tStreamKey, tDigest>& digests)
    {
        for (const auto& [key, digest] : digests)
            m_result.total.streams[key].setDigest(digest);
    }

    tRecordingCounts take(bool complete)
    {
        m_result.total.silences = m_activity.silences();
        m_result.complete = complete;
        return std::move(m_result);
    }

    tRecordingCounts m_result;

private:
    // The time between two recordings is no gap.
    void enterFolder(const std::string& folder)
    {
        if (folder == m_folder)
            return;
        for (auto& [key, stream] : m_result.total.streams)
            stream.interrupt();
        m_folder = folder;
    }

    void addSums(const tFileCounts& counts)
    {
        tTotalCounts& total = m_result.total;
        if (counts.records > 0)
            total.firstMs = total.records == 0 ? counts.firstMs : std::min(total.firstMs, counts.firstMs);
        total.lastMs = std::max(total.lastMs, counts.lastMs);
        total.size += counts.size;
        total.diskSize += counts.diskSize;
        total.records += counts.records;
        total.bytes += counts.bytes;
        total.damaged += counts.damaged;
        for (const auto& [key, missing] : counts.missingOnWire)
            total.missingOnWire[key] += missing;
        if (counts.sheet)
            addLosses(counts.sheet->losses);
    }

    void addLosses(const tSheetLosses& losses)
    {
        tSheetLosses& sum = m_result.total.losses;
        sum.kernelDropped += losses.kernelDropped;
        sum.queueLost += losses.queueLost;
        sum.diskLost += losses.diskLost;
        sum.joinsLost.insert(sum.joinsLost.end(), losses.joinsLost.begin(), losses.joinsLost.end());
    }

    const std::uint64_t m_gapMs;
    std::string m_folder;  // of the present file
    tActivity m_activity;
};
}  // namespace

tRecordingCounts countRecordings(const std::vector<std::string>& paths, const tCountOptions& options,
                                 const std::function<bool(const tCountProgress&)>& goOn)
{
    tFoundFiles files = findAllRecordings(paths, options.suffix);
    tCountingThreads threads(options, files.files, goOn);
    threads.run();
    tTotal total(options.gapMs);
    total.m_result.leftOut = std::move(files.leftOut);
    for (std::size_t i = 0; i < files.files.size(); ++i)
    {
        auto& [counted, error] = threads.found()[i];
        const std::string& file = files.files[i];
        if (counted)
            total.add(std::move(*counted));
        else if (!error.empty())
            total.m_result.leftOut.push_back(
                leftOut(file, error, std::find(paths.begin(), paths.end(), file) != paths.end()));
    }
    if (total.m_result.files.empty() && threads.complete())
        throw nothingLeft(total.m_result.leftOut);
    total.addDigests(threads.digests());
    return total.take(threads.complete());
}
}  // namespace recordings
