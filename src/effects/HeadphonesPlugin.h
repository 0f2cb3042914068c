// Headphones crossfeed: each channel of a stereo stream gets a low-passed,
// slightly delayed copy of the other, as the far ear hears a loudspeaker:
// later and duller. Every choice comes from six presets; the store keeps the
// three numbers of the one in use.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "core/QVArray.h"
#include "core/QVCircleBuffer.h"
#include "filters/IIRFilter.h"
#include "frame/PanelModel.h"
#include "frame/QVDSPBase.h"
#include "qvdsp/AudioFormat.h"

// One preset.
struct CHeadphonesDSPPluginSettings
{
    double strength;  // share of the other channel; 0 is off
    double delayMS;
    double cutoffFrequency;  // Hz
    QVString name;
};

class CHeadphonesDSPPlugin;

// The panel: the preset names in a list.
class CHeadphonesDlg : public QVPanelModel
{
public:
    // Shown when no preset matches the plug-in's numbers.
    static constexpr int32_t FALLBACK_ROW = 2;

    explicit CHeadphonesDlg(CHeadphonesDSPPlugin* plugin);
    void Open() override;

    QVString GetHeading() const;
    QVString GetText() const;
    // The names of the list, translated, in table order.
    std::vector<QVString> GetItems() const;
    int32_t GetSelection() const { return selection; }
    // A new choice in the list: the plug-in takes the row's numbers, and a
    // plug-in with a zone stores them.
    void Select(int32_t row);

private:
    CHeadphonesDSPPlugin* plugin;
    int32_t selection = FALLBACK_ROW;
};

class CHeadphonesDSPPlugin : public QVDSPBase
{
public:
    static constexpr const char16_t* NAME = u"Headphones";
    static constexpr const char16_t* SUBKEY = u"Headphones";
    static constexpr const char16_t* LEGACY_KEY = u"Plugins\\DSP\\QM DSP";
    static constexpr const char16_t* LEGACY_PREFIX = u"Headphones - ";
    // The first name is spelt as users' stores have it.
    static constexpr const char16_t* STRENGTH_VALUE = u"Crossfeed (Stregth)";
    static constexpr const char16_t* DELAY_VALUE = u"Crossfeed (Delay MS)";
    static constexpr const char16_t* CUTOFF_VALUE = u"Crossfeed (Cutoff Frequency)";
    static constexpr double HISTORY_MS = 2000.0;
    static constexpr double BUTTERWORTH_Q = 0.7071067811865476;
    // 10^(-0.15): the input is lowered by 3 dB; see ProcessBlock.
    static const double INPUT_SCALE;

    CHeadphonesDSPPlugin(IQVDSPHost* host, int32_t zone);
    ~CHeadphonesDSPPlugin() override;

    int32_t Flush() override;
    int32_t SetFormat(const CAudioFormat& format) override;
    int64_t Command(int32_t kind, void* arg, uint64_t* out) override;
    int32_t ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink) override;
    QVString GetName() override;

    // The six presets, built at the first call.
    static const QVOwnedPtrArray<CHeadphonesDSPPluginSettings>& GetPresets();
    // The row whose three numbers all equal these, or -1.
    static int32_t FindPreset(double strength, double delayMS, double cutoffFrequency);

    // Takes new numbers; the filters and the history start again from silence.
    // Unless `force`, numbers equal to the present ones change nothing.
    void SetParameters(double strength, double delayMS, double cutoffFrequency, bool force,
                       bool notify);
    void LoadSettings();
    // Writes the three values unless the plug-in is transient; false if the
    // store refused one of them.
    bool SaveSettings();
    bool LastSaveSucceeded() const { return lastSaveSucceeded; }

    double GetStrength() const { return strength; }
    double GetDelayMS() const { return delayMS; }
    double GetCutoffFrequency() const { return cutoffFrequency; }
    bool IsValid() const { return valid; }
    // The delay in frames at the present format.
    int32_t GetDelayFrames() const;
    CHeadphonesDlg* GetPanel() const { return panel.get(); }

private:
    void RebuildFiltersAndHistory();
    void SizeWorkBuffers(int32_t frames);
    void Crossfeed(double* samples, int32_t frames, double* mixed);
    void MakeRoomInHistory(int32_t frames);

    std::recursive_mutex lock;
    bool lastSaveSucceeded = true;
    bool valid = true;
    double strength = 0.0;
    double delayMS = 0.0;
    double cutoffFrequency = 700.0;
    CAudioFormat format;
    std::unique_ptr<QVMemoryCircleBuffer> history;
    QVOwnedPtrArray<CIIRFilter> filters;
    std::unique_ptr<CHeadphonesDlg> panel;

    // Work buffers of `channels * workFrames` doubles: the low-passed block,
    // the part of its delayed copy that lies in the history, and the output.
    // Sized with the history and grown only for a block longer than any
    // before. Every frame is written before it is read, so they are left
    // uninitialised: pages a short block never touches are never mapped.
    int32_t workFrames = 0;
    std::unique_ptr<double[]> low;
    std::unique_ptr<double[]> delayed;
    std::unique_ptr<double[]> out;
};
