// The list filters that change level, routing, order, time or polarity of
// channels, the mid-side pair, and the divider, which only separates the list.
#pragma once

#include <map>
#include <memory>

#include "filters/DelayFilter.h"
#include "parametric/ParametricFilter.h"

// Types 4 "Adjust the volume" and 5 "Mute". With `allChannels` (the Equalizer's
// preamp) the whole interleaved block is scaled.
class CParametricVolumeFilter : public CParametricFilter
{
public:
    enum EControl : int32_t
    {
        CONTROL_GAIN = 1,
        CONTROL_CHANNELS,
    };

    CParametricVolumeFilter(int32_t type, bool allChannels);
    QVString GetDescription() const override;
    void Process(double* samples, int32_t frames, const CAudioFormat* format,
                 UserChannelBuffer* userChannels) override;
    void UpdatePanelFromValues() override;
    void UpdateValuesFromPanel() override;
    void Serialize(bool load, QVPropertyMap& map) override;
    virtual void SetGain(double gainDb);

    double gain = 0.0;  // dB, type 4
    ChannelList channels{CAudioFormat::Left, CAudioFormat::Right};
    bool allChannels;

protected:
    void BuildPanel(CFilterPanel& target) override;
};

enum ChannelMixMode : int32_t
{
    CHANNELMIX_ADD = 0,
    CHANNELMIX_COPY = 1,
    CHANNELMIX_MOVE = 2,
    CHANNELMIX_SWAP = 3,
    CHANNELMIX_SUBTRACT = 4,
};

class CParametricChannelMixerFilter : public CParametricFilter
{
public:
    enum EControl : int32_t
    {
        CONTROL_SOURCE = 1,
        CONTROL_DESTINATION,
        CONTROL_MODE,
        CONTROL_GAIN,
    };

    CParametricChannelMixerFilter();
    QVString GetDescription() const override;
    void Process(double* samples, int32_t frames, const CAudioFormat* format,
                 UserChannelBuffer* userChannels) override;
    void UpdatePanelFromValues() override;
    void UpdateValuesFromPanel() override;
    void Serialize(bool load, QVPropertyMap& map) override;

    int32_t source = CAudioFormat::Left;
    int32_t destination = CAudioFormat::Right;
    int32_t mode = CHANNELMIX_SWAP;
    double gain = 0.0;  // dB

protected:
    void BuildPanel(CFilterPanel& target) override;
};

class CParametricChannelOrderFilter : public CParametricFilter
{
public:
    enum EControl : int32_t
    {
        CONTROL_ORDER = 1,
        CONTROL_RESET,
        CONTROL_NOTE,
    };

    CParametricChannelOrderFilter();
    QVString GetDescription() const override;
    void Process(double* samples, int32_t frames, const CAudioFormat* format,
                 UserChannelBuffer* userChannels) override;
    void UpdatePanelFromValues() override;
    void UpdateValuesFromPanel() override;
    void Serialize(bool load, QVPropertyMap& map) override;
    // The panel's "Reset" entry.
    void ResetOrder();

    static ChannelList DefaultOrder();

    ChannelList order;

protected:
    void BuildPanel(CFilterPanel& target) override;
};

class CParametricDelayFilter : public CParametricFilter
{
public:
    enum EControl : int32_t
    {
        CONTROL_DELAY = 1,
        CONTROL_CHANNELS,
    };
    static constexpr double MAX_DELAY_MS = 30000.0;

    CParametricDelayFilter();
    ~CParametricDelayFilter() override;
    QVString GetDescription() const override;
    void Process(double* samples, int32_t frames, const CAudioFormat* format,
                 UserChannelBuffer* userChannels) override;
    void UpdatePanelFromValues() override;
    void UpdateValuesFromPanel() override;
    void Serialize(bool load, QVPropertyMap& map) override;

    double delay = 0.0;  // ms
    ChannelList channels{CAudioFormat::Left, CAudioFormat::Right};
    std::map<int32_t, std::unique_ptr<CDelayFilter<double>>> delayLines;

protected:
    void BuildPanel(CFilterPanel& target) override;
};

class CParametricPolarityFilter : public CParametricFilter
{
public:
    enum EControl : int32_t
    {
        CONTROL_CHANNELS = 1,
    };

    CParametricPolarityFilter();
    QVString GetDescription() const override;
    void Process(double* samples, int32_t frames, const CAudioFormat* format,
                 UserChannelBuffer* userChannels) override;
    void UpdatePanelFromValues() override;
    void UpdateValuesFromPanel() override;
    void Serialize(bool load, QVPropertyMap& map) override;

    ChannelList channels{CAudioFormat::Left, CAudioFormat::Right};

protected:
    void BuildPanel(CFilterPanel& target) override;
};

// Mid lands on the left position, side (right minus left, without the half)
// on the right one.
class CParametricMidSideFilter : public CParametricFilter
{
public:
    CParametricMidSideFilter();
    QVString GetDescription() const override;
    void Process(double* samples, int32_t frames, const CAudioFormat* format,
                 UserChannelBuffer* userChannels) override;
};

// The decoder runs its pass once per channel of the stream, so twice on
// stereo: it does not invert the encoder, and that is how it has always been.
class CParametricUnMidSideFilter : public CParametricFilter
{
public:
    CParametricUnMidSideFilter();
    QVString GetDescription() const override;
    void Process(double* samples, int32_t frames, const CAudioFormat* format,
                 UserChannelBuffer* userChannels) override;
};

class CParametricDividerFilter : public CParametricFilter
{
public:
    enum EControl : int32_t
    {
        CONTROL_TEXT = 1,
    };

    CParametricDividerFilter();
    QVString GetDescription() const override;
    void UpdatePanelFromValues() override;
    void UpdateValuesFromPanel() override;
    void Serialize(bool load, QVPropertyMap& map) override;

    QVString text;

protected:
    void BuildPanel(CFilterPanel& target) override;
};
