// List filters that do their own arithmetic rather than use CIIRFilter: the
// Linkwitz transform, a fourth-order Linkwitz-Riley high-pass on every channel,
// and a quantizer that simulates a lower bit depth with optional dither.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "parametric/ParametricFilter.h"

// The per-channel biquad of the Linkwitz transform. Coefficients are the ones
// computed for the last block; a change of any of them restarts the history.
struct CLinkwitzTransformFilter
{
    bool initialized = false;
    double target[6] = {};  // 1.0, b0, b1, b2, a1, a2 as last computed
    double b0 = 0, b1 = 0, b2 = 0, a1 = 0, a2 = 0;
    double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
};

class CParametricLinkwitzTransformFilter : public CParametricFilter
{
public:
    enum EControl : int32_t
    {
        CONTROL_FZ = 1,
        CONTROL_QZ,
        CONTROL_FP,
        CONTROL_QP,
        CONTROL_PREVENT_CLIPPING,
        CONTROL_CHANNELS,
    };

    CParametricLinkwitzTransformFilter();
    ~CParametricLinkwitzTransformFilter() override;
    QVString GetDescription() const override;
    void Process(double* samples, int32_t frames, const CAudioFormat* format,
                 UserChannelBuffer* userChannels) override;
    void UpdatePanelFromValues() override;
    void UpdateValuesFromPanel() override;
    void Serialize(bool load, QVPropertyMap& map) override;

    double fz = 55.0;  // Hz, the driver's resonance to cancel
    double qz = 1.21;
    double fp = 25.0;  // Hz, the new resonance
    double qp = 0.5;
    bool preventClipping = false;
    ChannelList channels{CAudioFormat::Subwoofer};
    std::map<int32_t, std::unique_ptr<CLinkwitzTransformFilter>> transforms;

protected:
    void BuildPanel(CFilterPanel& target) override;
};

// One channel of the Linkwitz-Riley high-pass. It keeps the rate and frequency
// of its creation, so only an edit of the filter brings a new rate in.
struct CLinkwitzRileyEffect
{
    CLinkwitzRileyEffect(int32_t sampleRate, double frequency);
    double Process(double x);

    int32_t sampleRate;
    double frequency;
    double x1 = 0, x2 = 0, x3 = 0, x4 = 0;
    double y1 = 0, y2 = 0, y3 = 0, y4 = 0;
    double c[5];  // feed-forward
    double d[5];  // feedback, d[0] unused
};

class CLinkwitzRileyFilter : public CParametricFilter
{
public:
    enum EControl : int32_t
    {
        CONTROL_FREQUENCY = 1,
    };

    CLinkwitzRileyFilter();
    ~CLinkwitzRileyFilter() override;
    QVString GetDescription() const override;
    void Process(double* samples, int32_t frames, const CAudioFormat* format,
                 UserChannelBuffer* userChannels) override;
    void UpdatePanelFromValues() override;
    void UpdateValuesFromPanel() override;
    void Serialize(bool load, QVPropertyMap& map) override;

    double frequency = 1000.0;
    // By position in the stream's channel table.
    std::vector<std::unique_ptr<CLinkwitzRileyEffect>> effects;

protected:
    void BuildPanel(CFilterPanel& target) override;
};

// The per-block working object of the bit-depth simulator.
struct CSampleQuantizer
{
    CSampleQuantizer(int32_t bits, bool dither, int32_t ditherMode);
    double Quantize(double x);
    void AdvanceNoise();

    double scale;
    double gainScale;
    double upperClip;
    double lowerClip;
    int32_t maxValue;
    int32_t minValue;
    bool ditherOn;
    int32_t ditherBits = 0;
    double previousNoise = 0.0;
    double noiseUnit = 0.0;
    uint32_t seed = 0;
};

class CParametricBitdepthSimulatorFilter : public CParametricFilter
{
public:
    enum EControl : int32_t
    {
        CONTROL_BITS = 1,
        CONTROL_DITHER,
    };

    CParametricBitdepthSimulatorFilter();
    QVString GetDescription() const override;
    void Process(double* samples, int32_t frames, const CAudioFormat* format,
                 UserChannelBuffer* userChannels) override;
    void UpdatePanelFromValues() override;
    void UpdateValuesFromPanel() override;
    void Serialize(bool load, QVPropertyMap& map) override;

    int32_t bits = 24;
    bool dither = true;
    // The host's "Dither Mode" (0 off, 2 one bit less, else on), read when the
    // filter is made or edited: the audio thread doesn't touch the store.
    int32_t ditherMode = 1;

protected:
    void BuildPanel(CFilterPanel& target) override;
};

// The system-wide "Dither Mode" under "Properties", 1 where there is no store.
int32_t ReadDitherMode();
