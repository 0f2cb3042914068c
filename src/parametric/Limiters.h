// Peak limiters of the list, without look-ahead: every decision is made on the
// current sample, which is already corrected, so neither adds latency.
#pragma once

#include "filters/IIRFilter.h"
#include "parametric/ParametricFilter.h"

// A time in milliseconds as a count of interleaved samples of the stream, a
// whole number of frames. The limiters' counters advance once per processed
// sample of a chosen channel, so with fewer chosen channels than the stream
// has, their times run long by that ratio.
int64_t CountedSamples(const CAudioFormat& format, double milliseconds);

class CParametricLimiterFilter : public CParametricFilter
{
public:
    enum EMode : int32_t
    {
        MODE_BRICK_WALL = 0,
        MODE_ADAPTIVE = 1,
    };
    enum EControl : int32_t
    {
        CONTROL_MODE = 1,
        CONTROL_LIMIT,
        CONTROL_ATTACK,
        CONTROL_HOLD,
        CONTROL_RELEASE,
        CONTROL_CHANNELS,
    };

    CParametricLimiterFilter();
    QVString GetDescription() const override;
    void Process(double* samples, int32_t frames, const CAudioFormat* format,
                 UserChannelBuffer* userChannels) override;
    void UpdatePanelFromValues() override;
    void UpdateValuesFromPanel() override;
    void Serialize(bool load, QVPropertyMap& map) override;

    int32_t mode = MODE_BRICK_WALL;
    double level = 0.0;        // dB, brick wall
    double attack = 3000.0;    // microseconds
    double hold = 10000.0;     // ms
    double release = 30000.0;  // ms per 10 dB
    bool prepared = false;
    int64_t sampleCounter = 0;
    int64_t holdUntil = 0;
    int64_t holdLength = 0;
    double envelope = 0.0;     // dB
    double releaseStep = 0.0;  // dB per counted sample
    double attackCoefficient = 0.0;
    ChannelList channels{2, 3, 4, 5, 6, 7, 8, 9};

protected:
    void BuildPanel(CFilterPanel& target) override;

private:
    void ProcessBrickWall(double* samples, int32_t frames, const CAudioFormat& format,
                          UserChannelBuffer* userChannels) const;
    void PrepareAdaptive(const CAudioFormat& format);
    void ProcessAdaptive(double* samples, int32_t frames, const CAudioFormat& format);
    void ShowModeControls();
};

// The working state of the subwoofer limiter, made afresh by each preparation.
struct CSubwooferLimiterState
{
    double levelDb = 0.0;  // not below -96; kept for reference only
    double limit = 1.0;
    bool active = false;
    double lowGain = 1.0;
    double lowGainDb = 0.0;
    double lowStep = 0.0;  // dB per sample
    double highGain = 1.0;
    double highGainDb = 0.0;
    double highStep = 0.0;
    CIIRFilter split;

    // One sample through the split and the two gains.
    double Process(double x);
};

class CParametricSubwooferLimiterFilter : public CParametricFilter
{
public:
    enum EControl : int32_t
    {
        CONTROL_CHANNEL = 1,
        CONTROL_LIMIT,
    };

    CParametricSubwooferLimiterFilter();
    QVString GetDescription() const override;
    void Process(double* samples, int32_t frames, const CAudioFormat* format,
                 UserChannelBuffer* userChannels) override;
    void UpdatePanelFromValues() override;
    void UpdateValuesFromPanel() override;
    void Serialize(bool load, QVPropertyMap& map) override;

    double level = 0.0;  // dB
    ChannelList channels{CAudioFormat::Subwoofer};
    bool prepared = false;
    CSubwooferLimiterState limiter;

protected:
    void BuildPanel(CFilterPanel& target) override;

private:
    void Prepare(const CAudioFormat& format);
};
