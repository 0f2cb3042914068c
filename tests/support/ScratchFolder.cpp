#include "support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <stdlib.h>

#include <algorithm>
#include <fstream>
#include <sstream>

namespace qvtest
{

ScratchFolder::ScratchFolder()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "qvdsp-test-XXXXXX").string();
    if (!mkdtemp(pattern.data()))
        ADD_FAILURE() << "cannot create a scratch folder";
    path = pattern;
}

ScratchFolder::~ScratchFolder()
{
    std::error_code error;
    std::filesystem::remove_all(path, error);
}

std::vector<std::string> ScratchFolder::Entries() const
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

std::string ReadBytes(const std::filesystem::path& path)
{
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << stream.rdbuf();
    return bytes.str();
}

void WriteBytes(const std::filesystem::path& path, std::string_view bytes)
{
    std::ofstream(path, std::ios::binary)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace qvtest
