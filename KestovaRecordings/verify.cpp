#include "KestovaRecordings/verify.h"

#include <algorithm>
#include <utility>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/internal/fileexamination.h"
#include "KestovaStorage/datastorageio.h"

namespace recordings
{
namespace
{
class tVerifier
{
public:
    tVerifier(const tVerifyOptions& options, const std::function<bool(const tVerifyProgress&)>& goOn)
        : m_options(options), m_goOn(goOn)
    {}

    tVerification run(const std::vector<std::string>& paths)
    {
        tFoundFiles found = findAllRecordings(paths, m_options.suffix);
        m_result.leftOut = std::move(found.leftOut);
        m_result.complete = true;
        m_files = std::move(found.files);
        for (m_number = 1; m_number <= m_files.size() && m_result.complete; ++m_number)
        {
            const std::string& file = m_files[m_number - 1];
            const bool asked = std::find(paths.begin(), paths.end(), file) != paths.end();
            if (const auto present = presentForm(file, m_files, m_options.suffix))
                verify(*present, asked);
        }
        if (m_result.files.empty() && m_result.complete)
            throw nothingLeft(m_result.leftOut);
        return std::move(m_result);
    }

private:
    void verify(const std::string& path, bool asked)
    try
    {
        const auto goOn = [this](std::uint64_t bytes, std::uint64_t ofBytes) {
            return m_goOn({m_number, m_files.size(), bytes, ofBytes});
        };
        if (!goOn(0, 0))
            return cancel();
        auto examined = examineFile(path, {m_options.quick, threadsFor(m_options.threads)}, goOn);
        if (!examined)
            return cancel();
        ++countOf(examined->verified.state);
        m_result.files.push_back(std::move(examined->verified));
    }
    catch (const tFailure& failure)
    {
        if (storage::tDataStorageIO::IsExistPath(path))
            m_result.leftOut.push_back(leftOut(path, failure.what(), asked));
        else if (const auto present = presentForm(path, m_files, m_options.suffix))  // compressed or deleted just now
            verify(*present, asked);
    }

    void cancel() { m_result.complete = false; }

    std::size_t& countOf(eFileState state)
    {
        switch (state)
        {
        case eFileState::eSound:
            return m_result.sound;
        case eFileState::eRecording:
            return m_result.recording;
        case eFileState::eUnfinished:
            return m_result.unfinished;
        default:
            return m_result.damaged;
        }
    }

    const tVerifyOptions& m_options;
    const std::function<bool(const tVerifyProgress&)>& m_goOn;
    std::vector<std::string> m_files;
    std::size_t m_number = 0;  // of the present one, from 1
    tVerification m_result;
};
}  // namespace

const char* stateName(eFileState state)
{
    constexpr const char* cNames[] = {"sound", "recording", "unfinished", "damaged"};
    return cNames[static_cast<std::size_t>(state)];
}

tVerification verifyRecordings(const std::vector<std::string>& paths, const tVerifyOptions& options,
                               const std::function<bool(const tVerifyProgress&)>& goOn)
{
    return tVerifier(options, goOn).run(paths);
}
}  // namespace recordings
