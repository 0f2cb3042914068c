#include "TestFiles.h"

#include <sndfile.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <limits>
#include <random>
#include <sstream>

namespace clitest
{

void WriteWithLibsndfile(const std::filesystem::path& path, int format, int sampleRate,
                         int channels, const std::vector<double>& samples, bool clipping)
{
    SF_INFO info{};
    info.format = format;
    info.samplerate = sampleRate;
    info.channels = channels;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
    sf_command(file, SFC_SET_CLIPPING, nullptr, clipping ? SF_TRUE : SF_FALSE);
    sf_count_t frames = static_cast<sf_count_t>(samples.size() / channels);
    EXPECT_EQ(sf_writef_double(file, samples.data(), frames), frames);
    sf_close(file);
}

namespace
{

// Every frame of a file through libsndfile's reader of that sample type.
template <typename Sample>
std::vector<Sample> ReadAll(const std::filesystem::path& path, SF_INFO& info,
                            sf_count_t (*read)(SNDFILE*, Sample*, sf_count_t))
{
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file)
    {
        ADD_FAILURE() << "cannot read " << path << ": " << sf_strerror(nullptr);
        return {};
    }
    std::vector<Sample> samples(static_cast<size_t>(info.frames) * info.channels);
    EXPECT_EQ(read(file, samples.data(), info.frames), info.frames);
    sf_close(file);
    return samples;
}

}  // namespace

std::vector<double> ReadDoubles(const std::filesystem::path& path, int* format, int* sampleRate,
                                int* channels)
{
    SF_INFO info{};
    std::vector<double> samples = ReadAll<double>(path, info, sf_readf_double);
    if (format)
        *format = info.format;
    if (sampleRate)
        *sampleRate = info.samplerate;
    if (channels)
        *channels = info.channels;
    return samples;
}

std::vector<int32_t> ReadInts(const std::filesystem::path& path)
{
    SF_INFO info{};
    return ReadAll<int32_t>(path, info, sf_readf_int);
}

std::string PcmWavHeader(int channels, int sampleRate, int bits, uint32_t dataBytes)
{
    const auto le32 = [](uint32_t v) {
        return std::string{char(v), char(v >> 8), char(v >> 16), char(v >> 24)};
    };
    const auto le16 = [](uint32_t v) { return std::string{char(v), char(v >> 8)}; };
    const uint32_t blockAlign = static_cast<uint32_t>(channels * bits / 8);
    return "RIFF" + le32(dataBytes + 36) + "WAVEfmt " + le32(16) + le16(1) + le16(channels) +
           le32(sampleRate) + le32(sampleRate * blockAlign) + le16(blockAlign) + le16(bits) +
           "data" + le32(dataBytes);
}

std::vector<double> TestSignal(int64_t frames, int channels, double amplitude, uint32_t seed)
{
    std::mt19937 engine(seed);
    std::vector<double> samples(static_cast<size_t>(frames) * channels);
    for (double& sample : samples)
        sample = amplitude * (static_cast<double>(engine()) / 2147483648.0 - 1.0);
    const double edges[] = {1.0,
                            -1.0,
                            1.25,
                            -1.5,
                            0.5,
                            -0.5,
                            std::numeric_limits<double>::denorm_min(),
                            -std::numeric_limits<double>::min(),
                            0.0,
                            1.0 / 65536.0};
    for (size_t i = 0; i < std::size(edges) && i < samples.size(); ++i)
        samples[i] = edges[i];
    return samples;
}

const char* QvdspPath()
{
    return QVDSP_CLI_PATH;
}

RunResult RunQvdsp(const std::vector<std::string>& arguments, const ScratchFolder& scratch,
                   uid_t user)
{
    std::filesystem::path outPath = scratch / ".stdout";
    std::filesystem::path errPath = scratch / ".stderr";
    pid_t child = fork();
    if (child == 0)
    {
        int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        if (user != geteuid() && (setgid(user) != 0 || setuid(user) != 0))
            _exit(126);
        std::vector<char*> argv{const_cast<char*>(QVDSP_CLI_PATH)};
        for (const std::string& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        execv(QVDSP_CLI_PATH, argv.data());
        _exit(127);
    }
    RunResult result;
    int status = 0;
    waitpid(child, &status, 0);
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = clitest::ReadBytes(outPath);
    result.err = clitest::ReadBytes(errPath);
    std::filesystem::remove(outPath);
    std::filesystem::remove(errPath);
    return result;
}

void CommandFixture::SetUp()
{
    setenv("QVDSP_SETTINGS", (scratch / "wrong.json").c_str(), 1);
}

RunResult CommandFixture::Run(std::vector<std::string> arguments) const
{
    if (!command.empty())
        arguments.insert(arguments.begin(), command);
    arguments.insert(arguments.end(), {"--settings", settings.string()});
    return RunQvdsp(arguments, scratch);
}

std::string CommandFixture::Ok(const std::vector<std::string>& arguments) const
{
    RunResult result = Run(arguments);
    EXPECT_EQ(result.exitCode, 0) << arguments[0] << ": " << result.err;
    if (quiet)
    {
        EXPECT_EQ(result.err, "") << arguments[0];
    }
    return result.out;
}

void CommandFixture::Refused(const std::vector<std::string>& arguments, const std::string& reason,
                             int exitCode) const
{
    SCOPED_TRACE(testing::PrintToString(arguments));
    const std::string before = SettingsBytes();
    RunResult result = Run(arguments);
    EXPECT_EQ(result.exitCode, exitCode) << result.err;
    EXPECT_NE(result.err.find(reason), std::string::npos) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(SettingsBytes(), before);
}

std::string CommandFixture::SettingsBytes() const
{
    return std::filesystem::exists(settings) ? ReadBytes(settings) : std::string("<none>");
}

}  // namespace clitest
