// Small sound files, runs of the real binary and a fixture for its commands,
// for the tests of the command-line host.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <unistd.h>

#include "support/ScratchFolder.h"

namespace clitest
{

using qvtest::ReadBytes;
using qvtest::ScratchFolder;

// Writes interleaved doubles with libsndfile as it stands, clipping as asked.
void WriteWithLibsndfile(const std::filesystem::path& path, int format, int sampleRate,
                         int channels, const std::vector<double>& samples, bool clipping = true);
// Reads a whole file as doubles, and its layout.
std::vector<double> ReadDoubles(const std::filesystem::path& path, int* format = nullptr,
                                int* sampleRate = nullptr, int* channels = nullptr);
// Reads a whole file as 32-bit integers (libsndfile's left-justified form).
std::vector<int32_t> ReadInts(const std::filesystem::path& path);
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

// A command of qvdsp that keeps its state in a settings file of the test's
// own, named with --settings. QVDSP_SETTINGS points at "wrong.json" beside it:
// anything that ignores --settings would land there, and the test would see it.
class CommandFixture : public testing::Test
{
protected:
    // `command` goes before the arguments of every run; `quiet`: a run that
    // succeeds must also leave stderr empty.
    explicit CommandFixture(std::string command = "", bool quiet = true)
        : command(std::move(command)), quiet(quiet)
    {
    }
    void SetUp() override;

    // qvdsp COMMAND ARGUMENTS... --settings FILE
    RunResult Run(std::vector<std::string> arguments) const;
    // A run that must succeed; what it printed.
    std::string Ok(const std::vector<std::string>& arguments) const;
    // A run that must end with `exitCode`, say `reason` on stderr, print
    // nothing and leave the settings file as it was (or absent).
    void Refused(const std::vector<std::string>& arguments, const std::string& reason,
                 int exitCode = 2) const;
    // The settings file's bytes, "<none>" while there is none.
    std::string SettingsBytes() const;

    ScratchFolder scratch;
    std::filesystem::path settings = scratch / "settings.json";

private:
    std::string command;
    bool quiet;
};

}  // namespace clitest
