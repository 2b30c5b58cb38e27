// programNamed: where a program is that a test compares with, if it is installed.
#ifndef KESTOVA_TESTS_INSTALLEDPROGRAM_H
#define KESTOVA_TESTS_INSTALLEDPROGRAM_H

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>

// Empty if it is not in the folders of PATH.
inline std::string programNamed(const std::string& name)
{
    std::istringstream folders(std::getenv("PATH") != nullptr ? std::getenv("PATH") : "");
    for (std::string folder; std::getline(folders, folder, ':');)
        if (std::filesystem::exists(folder + "/" + name))
            return folder + "/" + name;
    return "";
}

#endif
