// tExportFolder: a folder that is filled under another name beside and renamed when it is whole.
//
// Names    FOLDER.part, which must not exist; neither may FOLDER. Without commit() the destructor removes it with all
//          that is in it.
// Threads  one at a time.
// Errors   operations throw tFailure.
#ifndef KESTOVA_RECORDINGS_INTERNAL_EXPORTFOLDER_H
#define KESTOVA_RECORDINGS_INTERNAL_EXPORTFOLDER_H

#include <string>
#include <string_view>

namespace recordings
{
class tExportFolder
{
public:
    explicit tExportFolder(const std::string& path);
    ~tExportFolder();
    tExportFolder(const tExportFolder&) = delete;
    tExportFolder& operator=(const tExportFolder&) = delete;

    const std::string& path() const { return m_path; }  // that it will have, without a slash at its end
    std::string fileName(const std::string& name) const { return m_part + "/" + name; }  // until then

    void makeFolder(const std::string& name);
    void put(const std::string& name, std::string_view bytes);  // a whole file
    void commit();  // syncs it and renames it, unless something has taken the name meanwhile

private:
    std::string m_path, m_part;
    bool m_committed = false;
};
}  // namespace recordings

#endif
