// Scratch folders and whole-file reads and writes for tests that touch the disk.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace qvtest
{

// A fresh folder under the system's temporary folder, removed with its content.
class ScratchFolder
{
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::filesystem::path& Path() const { return path; }
    std::filesystem::path operator/(const std::string& name) const { return path / name; }
    std::string File(const std::string& name) const { return (path / name).string(); }
    // Names of everything in the folder, sorted.
    std::vector<std::string> Entries() const;

private:
    std::filesystem::path path;
};

// The whole file; empty when it cannot be read.
std::string ReadBytes(const std::filesystem::path& path);
void WriteBytes(const std::filesystem::path& path, std::string_view bytes);

}  // namespace qvtest
