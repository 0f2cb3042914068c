// The reverb model: its constants and derived coefficients, the comb and
// all-pass against their closed forms, and whole impulse responses against a
// plain reference built from the formulas.
#include "effects/ReverbModel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "EffectsTestSupport.h"

TEST(ReverbModel, StartsFromItsSinglePrecisionConstantsWithSilentLines)
{
    auto model = std::make_unique<CReverbModel>();
    // The usual scales in single-precision constants: roomSize 0.5 x 0.28 +
    // 0.7, damp 0.5 x 0.4, gain 0.015.
    EXPECT_EQ(model->roomSize,
              static_cast<double>(0.5f) * static_cast<double>(0.28f) + static_cast<double>(0.7f));
    EXPECT_EQ(model->damp, static_cast<double>(0.2f));
    EXPECT_EQ(model->gain, static_cast<double>(0.015f));
    EXPECT_EQ(model->wet, 1.0);
    EXPECT_EQ(model->dry, 0.0);
    EXPECT_EQ(model->width, 1.0);
    EXPECT_EQ(model->mode, 0.0);
    // Update has run: width 1 puts all of each side on its own side.
    EXPECT_EQ(model->wet1, 1.0);
    EXPECT_EQ(model->wet2, 0.0);
    for (int32_t side = 0; side < 2; ++side)
    {
        for (const CReverbModel::Comb& comb : model->combs[side])
        {
            EXPECT_EQ(comb.feedback, model->roomSize);
            EXPECT_EQ(comb.damp1, model->damp);
            EXPECT_EQ(comb.damp2, 1.0 - model->damp);
            EXPECT_EQ(comb.index, 0);
            for (int32_t i = 0; i < comb.size; ++i)
                ASSERT_EQ(comb.buffer[i], 0.0);
        }
        for (const CReverbModel::AllPass& allPass : model->allPasses[side])
            EXPECT_EQ(allPass.feedback, 0.5);
    }
    const int32_t combs[2][8] = {{1116, 1188, 1277, 1356, 1422, 1491, 1557, 1617},
                                 {1139, 1211, 1300, 1379, 1445, 1514, 1580, 1640}};
    const int32_t allPasses[2][4] = {{556, 441, 341, 225}, {579, 464, 364, 248}};
    for (int32_t side = 0; side < 2; ++side)
    {
        for (int32_t i = 0; i < 8; ++i)
            EXPECT_EQ(model->combs[side][i].size, combs[side][i]);
        for (int32_t i = 0; i < 4; ++i)
            EXPECT_EQ(model->allPasses[side][i].size, allPasses[side][i]);
    }
    // Every line has room of its own, and all of them lie inside the object.
    const auto* begin = reinterpret_cast<const char*>(model.get());
    const auto* end = begin + sizeof(CReverbModel);
    std::vector<std::pair<const double*, int32_t>> lines;
    for (int32_t side = 0; side < 2; ++side)
    {
        for (const auto& comb : model->combs[side])
            lines.emplace_back(comb.buffer, comb.size);
        for (const auto& allPass : model->allPasses[side])
            lines.emplace_back(allPass.buffer, allPass.size);
    }
    std::sort(lines.begin(), lines.end());
    for (size_t i = 0; i < lines.size(); ++i)
    {
        EXPECT_GE(reinterpret_cast<const char*>(lines[i].first), begin);
        EXPECT_LE(reinterpret_cast<const char*>(lines[i].first + lines[i].second), end);
        if (i > 0)
        {
            EXPECT_LE(lines[i - 1].first + lines[i - 1].second, lines[i].first);
        }
    }
}

TEST(ReverbModel, UpdateDerivesWetGainsAndTheFrozenRoom)
{
    auto model = std::make_unique<CReverbModel>();
    model->wet = 0.3;
    model->width = 1.2;
    model->roomSize = 0.9;
    model->damp = 0.25;
    model->Update();
    // (1.2 / 2 + 0.5) x 0.3 and (1 - 1.2) / 2 x 0.3: wider than 1 mixes the
    // other side in opposite phase.
    EXPECT_DOUBLE_EQ(model->wet1, 0.33);
    EXPECT_DOUBLE_EQ(model->wet2, -0.03);
    EXPECT_EQ(model->feedback, 0.9);
    EXPECT_EQ(model->damp1, 0.25);
    EXPECT_EQ(model->combs[1][7].feedback, 0.9);
    EXPECT_EQ(model->combs[1][7].damp2, 0.75);

    model->mode = 0.5;
    model->Update();
    EXPECT_EQ(model->feedback, 1.0);
    EXPECT_EQ(model->gain, 0.0);
    EXPECT_EQ(model->combs[0][0].feedback, 1.0);
    EXPECT_EQ(model->combs[0][0].damp1, 0.0);
    EXPECT_EQ(model->combs[0][0].damp2, 1.0);
}

TEST(ReverbModel, CombAndAllPassFollowTheirClosedForms)
{
    // Without damping an impulse comes back once per pass, lowered by the
    // feedback each time: roomSize^k at k passes.
    std::vector<double> line(7, 0.0);
    CReverbModel::Comb comb;
    comb.buffer = line.data();
    comb.size = 7;
    comb.feedback = 0.84;
    comb.damp1 = 0.0;
    comb.damp2 = 1.0;
    std::vector<double> out;
    for (int32_t n = 0; n < 7 * 6; ++n)
        out.push_back(comb.Process(n == 0 ? 1.0 : 0.0));
    for (int32_t n = 0; n < 7 * 6; ++n)
    {
        const double expected = (n % 7 == 0 && n > 0) ? std::pow(0.84, n / 7 - 1) : 0.0;
        EXPECT_NEAR(out[n], expected, 1e-15) << n;
    }

    // With damping the echoes smear, but the loop's gain at DC is still the
    // feedback: all echoes together sum to 1 / (1 - roomSize).
    std::fill(line.begin(), line.end(), 0.0);
    comb = CReverbModel::Comb{0.8, 0.0, 0.36, 0.64, line.data(), 7, 0};
    double sum = 0.0;
    for (int32_t n = 0; n < 20000; ++n)
        sum += comb.Process(n == 0 ? 1.0 : 0.0);
    EXPECT_NEAR(sum, 1.0 / (1.0 - 0.8), 1e-9);

    // The all-pass: -x at once, then x and its echoes halved per pass.
    std::vector<double> allLine(5, 0.0);
    CReverbModel::AllPass allPass{0.5, allLine.data(), 5, 0};
    std::vector<double> y;
    for (int32_t n = 0; n < 21; ++n)
        y.push_back(allPass.Process(n == 0 ? 2.0 : 0.0));
    EXPECT_EQ(y[0], -2.0);
    EXPECT_EQ(y[5], 2.0);
    EXPECT_EQ(y[10], 1.0);
    EXPECT_EQ(y[15], 0.5);
    EXPECT_EQ(y[20], 0.25);
    EXPECT_EQ(y[3], 0.0);
}

TEST(ReverbModel, ImpulseResponsesMatchTheReferenceForEveryEnvironment)
{
    for (int32_t environment = 1; environment <= 5; ++environment)
    {
        for (int32_t amount : {1, 4, 10})
        {
            auto plugin = fxtest::MakePlugin({environment, amount, 0, 0}, 2);
            fxtest::ReferenceReverb reference(fxtest::ROOMS[environment], amount);
            // A first impulse, then a second one on the left only while the
            // first still rings, so that both sides and their sum are seen.
            std::vector<double> input = qvtest::Impulse(6000, 2, 0, 1.0);
            input[2 * 2500] = 0.5;
            const std::vector<double> output = fxtest::RunWhole(*plugin, input, 2);
            std::vector<double> expected = input;
            for (size_t f = 0; f < 6000; ++f)
                reference.Process(expected[2 * f], expected[2 * f + 1]);
            ASSERT_EQ(output, expected) << environment << " " << amount;
        }
    }

    // A few values by hand, Concert Hall at 4: dry (0.7 - 0.1) x 2 = 1.2 at
    // once; at frame 1116 the first left comb returns (1 + 1) x 0.015 through
    // four sign changes of the all-passes, as wet1 on the left and wet2 on
    // the right, with wet = 0.3 and width 1.2.
    auto plugin = fxtest::MakePlugin({1, 4, 0, 0}, 2);
    const std::vector<double> output = fxtest::RunWhole(*plugin, qvtest::Impulse(1200, 2), 2);
    const double wet1 = 0.33;
    const double wet2 = -0.03;
    const double echo = 2.0 * static_cast<double>(0.015f);
    EXPECT_NEAR(output[0], 1.2, 1e-15);
    EXPECT_NEAR(output[1], 1.2, 1e-15);
    for (size_t f = 1; f < 1116; ++f)
        ASSERT_EQ(output[2 * f] + output[2 * f + 1], 0.0) << f;
    EXPECT_NEAR(output[2 * 1116], echo * wet1, 1e-15);
    EXPECT_NEAR(output[2 * 1116 + 1], echo * wet2, 1e-15);
    // The first right comb, 23 frames later, gives the mirror image.
    EXPECT_NEAR(output[2 * 1139], echo * wet2, 1e-15);
    EXPECT_NEAR(output[2 * 1139 + 1], echo * wet1, 1e-15);
}

TEST(ReverbModel, TailsDecayLongestInTheArena)
{
    // Energy of the tail after a burst, 3 to 4 seconds in, per environment.
    std::vector<double> energy;
    for (int32_t environment = 1; environment <= 5; ++environment)
    {
        auto plugin = fxtest::MakePlugin({environment, 4, 0, 0}, 2);
        std::vector<double> input = qvtest::Noise(44100 * 4, 2, 7, 0.5);
        std::fill(input.begin() + 2 * 4410, input.end(), 0.0);
        const std::vector<double> output = fxtest::RunWhole(*plugin, input, 2);
        double sum = 0.0;
        for (size_t i = 2 * 44100 * 3; i < output.size(); ++i)
            sum += output[i] * output[i];
        energy.push_back(sum);
    }
    for (int32_t i = 0; i < 5; ++i)
    {
        EXPECT_GT(energy[i], 0.0) << i;
        if (i != 1)
        {
            EXPECT_GT(energy[1], energy[i] * 10.0) << i;
        }
    }
    // Jazz Club (0.784) and Living Room (0.742) die out faster than the hall (0.868).
    EXPECT_GT(energy[0], energy[2]);
    EXPECT_GT(energy[0], energy[4]);
}

TEST(ReverbModel, MuteClearsTheLinesButNotTheCombStateUnlessFrozen)
{
    auto model = std::make_unique<CReverbModel>();
    for (int32_t n = 0; n < 3000; ++n)
    {
        double left = std::sin(n * 0.1);
        double right = std::cos(n * 0.07);
        model->Process(left, right);
    }
    const double store = model->combs[0][3].filterStore;
    const int32_t index = model->combs[1][2].index;
    const int32_t allPassIndex = model->allPasses[0][1].index;
    ASSERT_NE(store, 0.0);
    ASSERT_NE(index, 0);
    model->Mute();
    EXPECT_EQ(model->combs[0][3].filterStore, store);
    EXPECT_EQ(model->combs[1][2].index, index);
    EXPECT_EQ(model->allPasses[0][1].index, allPassIndex);
    for (int32_t side = 0; side < 2; ++side)
    {
        for (const auto& comb : model->combs[side])
            for (int32_t i = 0; i < comb.size; ++i)
                ASSERT_EQ(comb.buffer[i], 0.0);
        for (const auto& allPass : model->allPasses[side])
            for (int32_t i = 0; i < allPass.size; ++i)
                ASSERT_EQ(allPass.buffer[i], 0.0);
    }

    // A frozen room takes no new input and keeps ringing through a Mute.
    for (int32_t n = 0; n < 3000; ++n)
    {
        double left = n == 0 ? 1.0 : 0.0;
        double right = left;
        model->Process(left, right);
    }
    model->mode = 1.0;
    model->Update();
    model->Mute();
    double loudness = 0.0;
    for (int32_t n = 0; n < 20000; ++n)
    {
        double left = 0.0;
        double right = 0.0;
        model->Process(left, right);
        if (n >= 18000)
            loudness += std::fabs(left);
    }
    EXPECT_GT(loudness, 1e-3);
}
