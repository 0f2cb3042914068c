// Effects: a room around the music, more "thump" and a wider stage in one
// plug-in. It has no lock: a panel change writes plain words and numbers that
// the next frame picks up.
#pragma once

#include <memory>

#include "effects/EffectsEngine.h"
#include "frame/QVDSPBase.h"

class CEffectsDisplayDlg;

class CEffectsDSPPlugin : public QVDSPBase
{
public:
    CEffectsDSPPlugin(IQVDSPHost* host, int32_t zone);
    ~CEffectsDSPPlugin() override;

    // Channel counts the engine has a layout for.
    static bool IsSupportedChannelCount(int32_t channels);

    int32_t Flush() override;
    int32_t SetFormat(const CAudioFormat& newFormat) override;
    int64_t Command(int32_t kind, void* arg, uint64_t* out) override;
    int32_t ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink) override;
    QVString GetName() override;

    CEffectsEngine& GetEngine() { return *engine; }
    CDSPSettings& GetSettings() { return engine->settings; }
    CEffectsDisplayDlg* GetPanel() const { return panel.get(); }

    CAudioFormat format;
    bool valid = false;

private:
    std::unique_ptr<CEffectsDisplayDlg> panel;
    // Made once: its delay lines are the plug-in's one large allocation.
    std::unique_ptr<CEffectsEngine> engine;
};
