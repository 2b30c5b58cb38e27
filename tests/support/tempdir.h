// tTempDir: a folder of its own for one test, removed with all that is in it.
#ifndef KESTOVA_TESTS_TEMPDIR_H
#define KESTOVA_TESTS_TEMPDIR_H

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

class tTempDir
{
public:
    tTempDir()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "kestova-test-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr)
            throw std::system_error(errno, std::generic_category(), "mkdtemp " + pattern);
        m_path = pattern;
    }
    ~tTempDir()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    tTempDir(const tTempDir&) = delete;
    tTempDir& operator=(const tTempDir&) = delete;

    const std::filesystem::path& path() const { return m_path; }
    std::string string() const { return m_path.string(); }                                // without a final "/"
    std::string file(const std::string& name) const { return (m_path / name).string(); }  // a path inside

private:
    std::filesystem::path m_path;
};

#endif
