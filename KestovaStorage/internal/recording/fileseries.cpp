#include "KestovaStorage/internal/recording/fileseries.h"

#include <cerrno>

#include "KestovaStorage/companions.h"
#include "KestovaStorage/internal/datafile/naming.h"
#include "KestovaStorage/internal/disk/paths.h"
#include "KestovaStorage/internal/recording/compressionqueue.h"
#include "UdpSocket/consoleprint.h"

namespace storage
{
namespace
{
using utils::time::tTimeParser;

constexpr char cFallbackRoot[] = "./RadarDataStorage";

std::string storageRoot(std::string path)
{
    if (path.empty())
        return path;
    paths::normalize(path);
    if (paths::makeFolders(path))
        return path;
    // Kept: without a final "/", so that recording folders are named ./RadarDataStorageData_...
    paths::makeFolders(cFallbackRoot);
    return cFallbackRoot;
}
}  // namespace

tFileSeries::tFileSeries(const std::string& storageBasePath, const std::string& specifySuffix,
                         tDiskReclaimer& reclaimer)
    : m_reclaimer(reclaimer), m_storageBasePath(storageRoot(storageBasePath)), m_specifySuffix(specifySuffix)
{
    if (!m_storageBasePath.empty())
        m_reclaimer.addRoot(this, m_storageBasePath);
}

void tFileSeries::releaseRoot()
{
    m_reclaimer.removeRoot(this);
}

std::shared_ptr<tWritingFile> tFileSeries::create(const tRequest& request, tTimes_ms timestamp)
{
    const std::string folder = recordingFolder(request, timestamp);
    auto next = std::make_shared<tWritingFile>();
    next->path = folder + nextFileName(folder, request, timestamp);
    next->id = newFileId();
    next->mark = tDiskReclaimer::tWritingMark(m_reclaimer, next->path);
    next->writer = newWriter(folder, next->path);
    if (!next->writer)
        return nullptr;
    if (request.fineTimes)
        next->writer->keepFineTimes(fineTimesName(next->path), next->id);
    if (request.observed)
        next->writer->reportFineTimes();
    if (request.compress)
    {
        next->encoder = tCompressionQueue::newEncoder();
        next->writer->countInto(next->encoder.get());
    }
    return next;
}

std::unique_ptr<tDataFileWriter> tFileSeries::newWriter(const std::string& folder, const std::string& path)
{
    if (paths::exists(path))
    {
        errno = EEXIST;
        Kestova::console::printSystemError("newfile already exist!\r\n");
        return nullptr;
    }
    if (!paths::makeFolders(folder))
    {
        Kestova::console::printSystemError("newfile path mkdir failed!\r\n");
        return nullptr;
    }
    std::unique_ptr<tDataFileWriter> writer = tDataFileWriter::create(path);
    // The folder was empty until now; reclaiming may have deleted it as one that a deleted file left empty.
    if (!writer && errno == ENOENT && paths::makeFolders(folder))
        writer = tDataFileWriter::create(path);
    if (!writer)
        Kestova::console::printSystemError(path.c_str());
    return writer;
}

std::string tFileSeries::nextFileName(const std::string& folder, const tRequest& request, tTimes_ms timestamp)
{
    naming::tPaths files;
    if (paths::exists(folder))
        paths::listFolder(folder, files, false, m_specifySuffix);
    const std::string label =
        naming::storageTimLabel(timestamp, true, tTimeParser::GetCurrentTime_s(), m_storageStartTim);
    return naming::fileName(naming::nextFileNumber(files, m_specifySuffix), label, request.extFileName,
                            m_specifySuffix);
}

std::string tFileSeries::recordingFolder(const tRequest& request, tTimes_ms timestamp)
{
    if (m_storageBasePath.empty())
        return request.customFolderPath;
    return m_storageBasePath + storageSubFolderName(timestamp) + "/";
}

std::string tFileSeries::storageSubFolderName(tTimes_ms timestamp)
{
    if (m_storageSubFolderName.empty())
    {
        naming::tPaths entries;
        paths::listFolder(m_storageBasePath, entries, false, "");
        const std::string label =
            naming::storageTimLabel(timestamp, false, tTimeParser::GetCurrentTime_s(), m_storageStartTim);
        m_storageSubFolderName = naming::folderName(naming::nextFolderNumber(entries), label);
    }
    return m_storageSubFolderName;
}
}  // namespace storage
