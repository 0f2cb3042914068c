#include "support/FuzzReplay.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace qvtest
{

int ReplayKeptInputs(const std::string& target, const std::string& regressions,
                     const std::function<void(const std::vector<uint8_t>&)>& check)
{
    const char* source = std::getenv("QVDSP_SOURCE_DIR");
    if (source == nullptr)
        return -1;
    int count = 0;
    for (const std::filesystem::path& folder :
         {std::filesystem::path(source) / "fuzz/corpus" / target,
          std::filesystem::path(source) / regressions / target})
    {
        if (!std::filesystem::is_directory(folder))
            continue;
        for (const auto& entry : std::filesystem::directory_iterator(folder))
        {
            SCOPED_TRACE(entry.path().string());
            std::ifstream in(entry.path(), std::ios::binary);
            check(std::vector<uint8_t>(std::istreambuf_iterator<char>(in),
                                       std::istreambuf_iterator<char>()));
            ++count;
        }
    }
    return count;
}

}  // namespace qvtest
