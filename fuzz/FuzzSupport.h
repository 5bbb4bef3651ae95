#pragma once

// What the fuzz targets share: the input as text, and a private folder for the parsers that
// read files, emptied between inputs.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include <unistd.h>

namespace kestrune::fuzz {

inline std::string_view text(const uint8_t* data, size_t size) { return { reinterpret_cast<const char*>(data), size }; }

// The input cut in two at its first NUL byte, for targets that read two things.
inline std::pair<std::string_view, std::string_view> halves(std::string_view input)
{
    auto cut = input.find('\0');
    if (cut == std::string_view::npos)
        return { input, {} };
    return { input.substr(0, cut), input.substr(cut + 1) };
}

class Scratch {
public:
    Scratch() : root_(std::filesystem::temp_directory_path() / ("kestrune-fuzz-" + std::to_string(::getpid()))) { clear(); }
    ~Scratch()
    {
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    void clear()
    {
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
        std::filesystem::create_directories(root_);
    }
    std::string path() const { return root_.string(); }
    // Writes a file under the folder, making its parents.
    std::string write(const std::string& relative, std::string_view contents) const
    {
        auto file = root_ / relative;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary).write(contents.data(), static_cast<std::streamsize>(contents.size()));
        return file.string();
    }

private:
    std::filesystem::path root_;
};

} // namespace kestrune::fuzz
