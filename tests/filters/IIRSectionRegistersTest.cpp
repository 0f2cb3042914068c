#include "filters/IIRSectionRegisters.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace
{

// Noise, then a stretch of silence long enough for the recursion to decay
// through the flush threshold.
std::vector<double> NoiseThenSilence()
{
    std::vector<double> signal(60000, 0.0);
    std::mt19937 random(7);
    std::uniform_real_distribution<double> amplitude(-1.0, 1.0);
    for (size_t i = 0; i < 4000; ++i)
        signal[i] = amplitude(random);
    return signal;
}

template <typename Registers>
void ExpectSameAsProcess(int kind, double frequency, double gain)
{
    CIIRFilter reference;
    ASSERT_TRUE(reference.Design(kind, 44100.0, frequency, gain, 0.7071, true, QVString()));
    ASSERT_TRUE(Registers::Fits(reference)) << "kind " << kind;
    CIIRFilter blockwise = reference;
    const std::vector<double> signal = NoiseThenSilence();
    // Blocks of uneven sizes: the state must carry over exactly.
    size_t start = 0;
    for (size_t size = 1; start < signal.size(); size = size * 3 + 1)
    {
        const size_t end = std::min(signal.size(), start + size);
        Registers registers(blockwise);
        for (size_t i = start; i < end; ++i)
        {
            const double expected = reference.Process(signal[i]);
            ASSERT_EQ(registers.Step(signal[i]), expected) << "kind " << kind << " sample " << i;
        }
        registers.StoreTo(blockwise);
        start = end;
    }
    EXPECT_EQ(reference.Process(0.0), 0.0) << "the decay never reached exact zero";
    for (size_t i = 0; i < 22; ++i)
        EXPECT_EQ(blockwise.state[i], reference.state[i]) << "kind " << kind;
}

}  // namespace

TEST(IIRSectionRegistersTest, OneSectionInRegistersGivesProcesssSamplesBitForBit)
{
    ExpectSameAsProcess<AnalogSectionRegisters>(IIR_LOWPASS_12, 700.0, 0.0);
    ExpectSameAsProcess<AnalogSectionRegisters>(IIR_HIGHPASS_12, 90.0, 0.0);
    ExpectSameAsProcess<DirectSectionRegisters>(IIR_PEAKING, 1000.0, 6.0);
    ExpectSameAsProcess<DirectSectionRegisters>(IIR_LOWSHELF, 200.0, -4.0);
}
