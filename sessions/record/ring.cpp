#include "sessions/record/ring.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <utility>

#include "KestovaRecordings/failure.h"

namespace session
{
using namespace recordings;

namespace
{
constexpr tWorker::tClock::duration cPeriod = std::chrono::seconds(2);
constexpr int cShare = 50;  // a pass takes this part of the time at most
}  // namespace

tRing::tRing(std::string root, const tPruneLimits& limits) : m_root(std::move(root)), m_limits(limits)
{
    if (m_limits.any())
        m_worker.start([this] { run(); });
}

void tRing::setFile(const std::string& inHand)
{
    const tWorker::tLock held = m_worker.lock();
    m_inHand = inHand;
}

std::vector<tPruned> tRing::take()
{
    const tWorker::tLock held = m_worker.lock();
    return std::exchange(m_deleted, {});
}

void tRing::run()
{
    auto pause = cPeriod;
    while (m_worker.sleepFor(pause))
    {
        const auto started = tWorker::tClock::now();
        pass();
        pause = std::max(cPeriod, (tWorker::tClock::now() - started) * cShare);
    }
}

void tRing::pass()
try
{
    tPruneOptions options;
    {
        const tWorker::tLock held = m_worker.lock();
        options.inHand = m_inHand;
    }
    if (options.inHand.empty())
        return;
    options.ownFolder = std::filesystem::path(options.inHand).parent_path().string();
    pruneRoot(m_root, m_limits, options, [this](const tPruned& one) {
        const tWorker::tLock held = m_worker.lock();
        m_deleted.push_back(one);
    });
}
catch (const tFailure&)
{
    // The root cannot be searched at the moment.
}
}  // namespace session
