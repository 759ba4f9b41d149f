#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <string_view>

// A directory of its own for one test, gone with it.
class Scratch {
public:
    Scratch() {
        std::string name = (std::filesystem::temp_directory_path() / "kpe-test-XXXXXX").string();
        root_ = mkdtemp(name.data());
    }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    const std::string& root() const { return root_; }
    std::string path(std::string_view name) const { return root_ + "/" + std::string(name); }

    // Directories on the way are made. Returns the path.
    std::string put(std::string_view name, std::string_view bytes) const {
        const std::filesystem::path file = path(name);
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << bytes;
        return file.string();
    }
    std::string get(std::string_view name) const {
        std::ifstream in(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    // The names in a directory of it.
    std::set<std::string> names(std::string_view directory = ".") const {
        std::set<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(path(directory)))
            found.insert(entry.path().filename().string());
        return found;
    }

private:
    std::string root_;
};
