// A temporary folder for the file tests, removed with everything in it at the end of the test.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <string>
#include <vector>

namespace tav_test {

struct TempDir {
    std::string path;
    TempDir() {
        char pattern[] = "/tmp/tavrin_files_XXXXXX";
        path = mkdtemp(pattern);
    }
    ~TempDir() { std::filesystem::remove_all(path); }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    std::string file(const std::string& name) const { return path + "/" + name; }
    std::vector<std::string> entries() const {
        std::vector<std::string> names;
        for (const auto& e : std::filesystem::directory_iterator(path))
            names.push_back(e.path().filename().string());
        return names;
    }
};

}  // namespace tav_test
