// The 20-band Equalizer: a preamp and twenty fixed peaking bands of +-12 dB,
// with named presets. It has no lock: a panel change is a plain write of a
// gain that the next block picks up.
#pragma once

#include <memory>

#include "effects/EqualizerEngine.h"
#include "effects/EqualizerPresets.h"
#include "frame/QVDSPBase.h"

class CEqualizerDlg;

class CEqualizerDSPPlugin : public QVDSPBase
{
public:
    CEqualizerDSPPlugin(IQVDSPHost* host, int32_t zone);
    ~CEqualizerDSPPlugin() override;

    int32_t Flush() override;
    int32_t SetFormat(const CAudioFormat& newFormat) override;
    int64_t Command(int32_t kind, void* arg, uint64_t* out) override;
    int32_t ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink) override;
    QVString GetName() override;

    CEqualizerEngine& GetEngine() { return engine; }
    CEqualizerPresets& GetPresets() { return presets; }
    const CAudioFormat& GetFormat() const { return format; }
    CEqualizerDlg* GetPanel() const { return panel.get(); }

private:
    CAudioFormat format;
    CEqualizerEngine engine;
    CEqualizerPresets presets;
    std::unique_ptr<CEqualizerDlg> panel;
};
