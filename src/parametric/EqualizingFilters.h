// The list filters that shape the frequency response with one CIIRFilter per
// channel: low-pass, high-pass, peak, low and high shelf, all-pass and the
// custom biquad read from a text file. CParametricIIRFilter is also the band
// of the 20-band Equalizer (band constructor and SetGain).
#pragma once

#include <map>
#include <memory>

#include "filters/IIRFilter.h"
#include "parametric/ParametricFilter.h"

class CParametricIIRFilter : public CParametricFilter
{
public:
    // Controls of the panel model.
    enum EControl : int32_t
    {
        CONTROL_FREQUENCY = 1,
        CONTROL_SLOPE,
        CONTROL_Q,
        CONTROL_GAIN,
        CONTROL_CHANNELS,
        CONTROL_FILENAME,
    };

    // A list filter of types 1, 2, 3, 10, 11 (and the derived 17, 21), on Left and Right.
    explicit CParametricIIRFilter(int32_t type);
    // A band of the 20-band Equalizer: a peak filter on every channel of the stream.
    CParametricIIRFilter(double frequency, double gain, double q);
    ~CParametricIIRFilter() override;

    QVString GetDescription() const override;
    void Process(double* samples, int32_t frames, const CAudioFormat* format,
                 UserChannelBuffer* userChannels) override;
    void UpdatePanelFromValues() override;
    void UpdateValuesFromPanel() override;
    void Serialize(bool load, QVPropertyMap& map) override;
    virtual void SetGain(double gainDb);

    // The IIRFilterKind this filter designs, -1 for none.
    int32_t GetDesignKind() const;

    // Distinct ids that can resolve: every position of a format, U1, U2, and
    // Left standing for the mono channel.
    static constexpr int32_t MAX_INTERLEAVED = CAudioFormat::MAX_CHANNELS + 3;

    // Runs `filters` from the first on over the block, as many as it can in one
    // pass: a stretch of peaks, shelves or all-passes on the same two channels
    // runs with the sections staggered by a sample, so that several recursions
    // are in flight at once. The result is the same, bit for bit, as running
    // each filter's Process in turn. Answers how many filters it ran (at least 1).
    static int32_t ProcessRun(const std::unique_ptr<CParametricFilter>* filters, int32_t count,
                              double* samples, int32_t frames, const CAudioFormat* format,
                              UserChannelBuffer* userChannels);

    double frequency = 1000.0;
    double slope = 12.0;  // dB/octave, low-pass and high-pass only
    double gain = 0.0;    // dB
    double q = 1.0;
    ChannelList channels;
    QVString customFile;
    bool allChannels = false;
    // One designed filter per channel id, made at its first block and kept for
    // the life of this object.
    std::map<int32_t, std::unique_ptr<CIIRFilter>> channelFilters;

protected:
    void BuildPanel(CFilterPanel& target) override;
    bool ShowsQ() const;
    bool ShowsGain() const;

private:
    CIIRFilter* FilterFor(int32_t channelId);
    // Whether this block's work could be a pair of single sections.
    bool MayRunAsPair() const;
    // Designs this block's channel filters and collects those that run side
    // by side; channels that must run alone have run when it returns.
    int32_t PrepareBlock(double* samples, int32_t frames, const CAudioFormat* format,
                         UserChannelBuffer* userChannels, CIIRFilter** active, ChannelSpan* spans);
    static void ProcessChannel(CIIRFilter* filter, const ChannelSpan& span, int32_t frames);
    static void ProcessInterleaved(CIIRFilter* const* filters, const ChannelSpan* spans,
                                   int32_t count, int32_t frames);
};

// Type 17: a second-order all-pass at `frequency` with `q`.
class CAllPassFilter : public CParametricIIRFilter
{
public:
    CAllPassFilter();
    QVString GetDescription() const override;
    void Serialize(bool load, QVPropertyMap& map) override;
};

// Type 21: sections read from a biquad text file, always on Left and Right.
class CCustomBiquadFilter : public CParametricIIRFilter
{
public:
    CCustomBiquadFilter();
    QVString GetDescription() const override;
    void UpdatePanelFromValues() override;
    void UpdateValuesFromPanel() override;
    void Serialize(bool load, QVPropertyMap& map) override;

protected:
    void BuildPanel(CFilterPanel& target) override;
};

// The Q of a shelf from the slope S of older saved lists (and of other
// programs' shelf definitions), with A = 10^(gain / 40).
double ShelfQFromSlope(double slope, double gainDb);
