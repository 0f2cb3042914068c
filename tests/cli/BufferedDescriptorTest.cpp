#include "cli/host/BufferedDescriptor.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

namespace
{

class ScratchFile
{
public:
    ScratchFile()
    {
        descriptor = mkstemp(path.data());
        EXPECT_GE(descriptor, 0);
    }
    ~ScratchFile()
    {
        close(descriptor);
        unlink(path.c_str());
    }
    std::string Contents() const
    {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }

    std::string path = (std::filesystem::temp_directory_path() / "qvdsp-buffered-XXXXXX").string();
    int descriptor = -1;
};

}  // namespace

// The buffer against a plain string standing for the file: any mix of seeks,
// reads and writes, small, straddling and larger than the buffer, must read
// what the string holds and leave the file equal to it.
TEST(BufferedDescriptorTest, AnyMixOfSeeksReadsAndWritesMatchesAPlainFile)
{
    constexpr int64_t big = static_cast<int64_t>(BufferedDescriptor::BUFFER_BYTES);
    for (uint32_t seed : {1u, 2u, 3u})
    {
        ScratchFile file;
        BufferedDescriptor io(file.descriptor);
        std::string model;
        int64_t position = 0;
        std::mt19937 random(seed);
        auto size = [&]
        {
            switch (random() % 4)
            {
            case 0: return int64_t(random() % 16);
            case 1: return int64_t(random() % 9000);
            case 2: return int64_t(big - 100 + random() % 200);
            default: return int64_t(big + random() % (2 * big));
            }
        };
        for (int step = 0; step < 300; ++step)
        {
            switch (random() % 5)
            {
            case 0:
            {
                const int64_t to = random() % (model.size() + 5000);
                ASSERT_EQ(io.Seek(to, SEEK_SET), to);
                position = to;
                break;
            }
            case 1:
            {
                const int64_t back =
                    -static_cast<int64_t>(random() % std::min<size_t>(3000, model.size() + 1));
                ASSERT_EQ(io.Seek(back, SEEK_END), static_cast<int64_t>(model.size()) + back);
                position = static_cast<int64_t>(model.size()) + back;
                break;
            }
            case 2:
            {
                const int64_t bytes = size();
                std::string got(static_cast<size_t>(bytes), '\0');
                const int64_t read = io.Read(got.data(), bytes);
                const int64_t available =
                    std::max<int64_t>(0, static_cast<int64_t>(model.size()) - position);
                ASSERT_EQ(read, std::min(bytes, available)) << "seed " << seed << " step " << step;
                ASSERT_EQ(got.substr(0, static_cast<size_t>(read)),
                          model.substr(static_cast<size_t>(position), static_cast<size_t>(read)));
                position += read;
                break;
            }
            case 3:
            {
                std::string bytes(static_cast<size_t>(size()), '\0');
                for (char& byte : bytes)
                    byte = static_cast<char>(random());
                ASSERT_EQ(io.Write(bytes.data(), static_cast<int64_t>(bytes.size())),
                          static_cast<int64_t>(bytes.size()));
                if (model.size() < position + bytes.size())
                    model.resize(position + bytes.size(), '\0');  // a hole reads as zeros
                model.replace(static_cast<size_t>(position), bytes.size(), bytes);
                position += static_cast<int64_t>(bytes.size());
                break;
            }
            default: ASSERT_TRUE(io.Flush());
            }
            ASSERT_EQ(io.Position(), position);
            ASSERT_EQ(io.Length(), static_cast<int64_t>(model.size()));
        }
        ASSERT_TRUE(io.Flush());
        EXPECT_EQ(file.Contents(), model) << "seed " << seed;
        EXPECT_EQ(io.Error(), 0);
    }
}

TEST(BufferedDescriptorTest, AFailedWriteIsKeptAndEndsEveryLaterOne)
{
    ScratchFile file;
    const int readOnly = open(file.path.c_str(), O_RDONLY);
    ASSERT_GE(readOnly, 0);
    {
        BufferedDescriptor io(readOnly);
        const std::string bytes(1000, 'x');
        // Buffered writes succeed until the buffer reaches the system.
        EXPECT_EQ(io.Write(bytes.data(), 1000), 1000);
        EXPECT_FALSE(io.Flush());
        EXPECT_EQ(io.Error(), EBADF);
        EXPECT_EQ(io.Write(bytes.data(), 1000), 0);
        EXPECT_FALSE(io.Flush());
    }
    close(readOnly);
    EXPECT_EQ(file.Contents(), "");
}
