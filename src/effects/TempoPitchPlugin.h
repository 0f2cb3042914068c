// Tempo & Pitch: speed and pitch changed independently by the SoundTouch
// library at its default settings. The plug-in's own design is when the
// library object exists: made at the first block that needs it, dropped at a
// format change and whenever the settings come back within 1% of neutral, so
// that normal playback never runs through it. The player may also drive the
// tempo from outside (DSPCMD_TEMPO) without touching the stored settings.
//
// The stream's blocks hand on other frame counts than they got, and some
// hand on nothing.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "frame/PanelModel.h"
#include "frame/QVDSPBase.h"
#include "qvdsp/AudioFormat.h"

namespace soundtouch
{
class SoundTouch;
}

class CTempoPitchDSPPlugin;

// The panel: three number controls for tempo, pitch and rate. A control of
// value c stands for the factor 1 + c above 0 and 1 / (1 - c) below, so that
// equal steps up and down are reciprocal factors.
class CTempoPitchDlg : public QVPanelModel
{
public:
    enum ERow : int32_t
    {
        ROW_TEMPO = 0,
        ROW_PITCH = 1,
        ROW_RATE = 2,
        ROW_COUNT = 3,
    };
    struct Control
    {
        const char16_t* heading;
        double minimum;
        double maximum;
        double step;
        double pageStep;
        const char16_t* help;
    };
    static const Control CONTROLS[ROW_COUNT];

    static double ControlToFactor(double control);
    static double FactorToControl(double factor);

    explicit CTempoPitchDlg(CTempoPitchDSPPlugin* plugin);
    void Open() override { Refresh(); }

    double GetValue(int32_t row) const { return values[row]; }
    // A change of one control: the plug-in takes the new factor with the two
    // present ones. Values outside the control's range are clamped to it.
    void SetValue(int32_t row, double value);
    // Writes the plug-in's factors to the controls, clamped to their ranges,
    // without raising a change.
    void Refresh();

private:
    CTempoPitchDSPPlugin* plugin;
    double values[ROW_COUNT] = {};
};

class CTempoPitchDSPPlugin : public QVDSPBase
{
public:
    static constexpr const char16_t* NAME = u"Tempo & Pitch";
    static constexpr const char16_t* LEGACY_KEY = u"Plugins\\DSP\\QM DSP";
    static constexpr const char16_t* TEMPO_VALUE = u"Tempo";
    static constexpr const char16_t* PITCH_VALUE = u"Pitch";
    static constexpr const char16_t* RATE_VALUE = u"Rate";
    // Settings within this of 1 count as neutral and bypass the library.
    static constexpr double NEUTRAL_TOLERANCE = 0.01;
    // The bounds of a tempo driven from outside.
    static constexpr double EXTERNAL_TEMPO_MIN = 0.01;
    static constexpr double EXTERNAL_TEMPO_MAX = 5.0;
    // The library's channel and rate bounds, and the stream's sample size.
    static constexpr int32_t MAX_CHANNELS = 32;
    static constexpr uint32_t MIN_RATE = 8000;
    static constexpr uint32_t MAX_RATE = 192000;
    static constexpr uint16_t STREAM_BITS = 64;
    // The library as packaged here: it refuses more than 16 channels, and its
    // anti-alias filter stops the process (an assertion) at 16 and more.
    static constexpr int32_t LIBRARY_MAX_CHANNELS = 15;

    CTempoPitchDSPPlugin(IQVDSPHost* host, int32_t zone);
    ~CTempoPitchDSPPlugin() override;

    int32_t Flush() override;
    int32_t SetFormat(const CAudioFormat& format) override;
    int64_t Command(int32_t kind, void* arg, uint64_t* out) override;
    int32_t ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink) override;
    QVString GetName() override;

    // The panel's road: stores the factors (saved unless driven from
    // outside) and tells the host, quietly (NotifyTempoChanged) if `silent`.
    void SetParameters(double tempo, double pitch, double rate, bool force, bool silent);
    void LoadSettings();
    // Writes the three values unless the plug-in is transient; false if the
    // store refused one of them.
    bool SaveSettings();
    bool LastSaveSucceeded() const { return lastSaveSucceeded; }

    double GetTempo() const { return tempo; }
    double GetPitch() const { return pitch; }
    double GetRate() const { return rate; }
    bool IsValid() const { return valid; }
    bool IsExternalTempo() const { return externalTempo; }
    bool HasStretcher() const { return soundTouch != nullptr; }
    // Whether blocks now pass untouched: an unusable format, or settings
    // within 1% of neutral while the tempo is not driven from outside.
    bool IsBypassed() const;
    // The factor by which the stream's time shrinks: tempo x rate, or 1
    // while bypassed.
    double GetSpeedFactor() const;
    CTempoPitchDlg* GetPanel() const { return panel.get(); }

private:
    void Apply();
    void DestroyStretcher();
    bool EnsureStretcher();
    void PutSamples(const double* samples, int32_t frames);
    const double* TakeOutput(uint32_t frames);
    int64_t TempoCommand(double* value, int32_t mode);
    void Describe(IStatusList* status);

    std::recursive_mutex lock;
    bool lastSaveSucceeded = true;
    CAudioFormat format;
    std::unique_ptr<CTempoPitchDlg> panel;
    bool valid = false;
    std::unique_ptr<soundtouch::SoundTouch> soundTouch;
    double tempo = 1.0;
    double pitch = 1.0;
    double rate = 1.0;
    bool externalTempo = false;

    // The library takes 32-bit floats: the block is converted into this on
    // the way in, in parts of its size, and the output into `output` on the
    // way out. Sized at SetFormat; `output` grows only for an output longer
    // than any before.
    std::vector<float> input;
    std::vector<double> output;
};
