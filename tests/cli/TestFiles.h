// Scratch folders and small sound files for the tests of the command-line host.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

namespace clitest
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
    // Names of everything in the folder, sorted.
    std::vector<std::string> Entries() const;

private:
    std::filesystem::path path;
};

// Writes interleaved doubles with libsndfile as it stands, clipping as asked.
void WriteWithLibsndfile(const std::filesystem::path& path, int format, int sampleRate,
                         int channels, const std::vector<double>& samples, bool clipping = true);
// Reads a whole file as doubles, and its layout.
std::vector<double> ReadDoubles(const std::filesystem::path& path, int* format = nullptr,
                                int* sampleRate = nullptr, int* channels = nullptr);
// Reads a whole file as 32-bit integers (libsndfile's left-justified form).
std::vector<int32_t> ReadInts(const std::filesystem::path& path);
std::string ReadBytes(const std::filesystem::path& path);
// A canonical 44-byte header of integer PCM that announces `dataBytes` of data.
std::string PcmWavHeader(int channels, int sampleRate, int bits, uint32_t dataBytes);

// Uniform noise in [-amplitude, amplitude) from a fixed seed, plus a few values
// that probe the edges: full scale, beyond it, the smallest magnitudes, zero.
std::vector<double> TestSignal(int64_t frames, int channels, double amplitude, uint32_t seed);

struct RunResult
{
    int exitCode = -1;
    std::string out;
    std::string err;
};

// Where the real qvdsp binary of this build is.
const char* QvdspPath();

// Runs the real qvdsp binary with `arguments`, its output and errors caught in
// files of the scratch folder (removed again afterwards); as another user
// (and the group of that number) when run by root and `user` is not root.
RunResult RunQvdsp(const std::vector<std::string>& arguments, const ScratchFolder& scratch,
                   uid_t user = geteuid());

}  // namespace clitest
