// Output Format changes no sample here: the host's output stage applies what
// its record says. The plug-in holds that record and the panel that edits it.
#pragma once

#include <cstdint>
#include <memory>

#include "frame/QVDSPBase.h"
#include "output/OutputFormatDlg.h"
#include "output/PlayerCoreSettings.h"

class COutputFormatDSPPlugin : public QVDSPBase
{
public:
    COutputFormatDSPPlugin(IQVDSPHost* host, int32_t zone);
    ~COutputFormatDSPPlugin() override;

    int32_t Flush() override;
    int32_t SetFormat(const CAudioFormat& format) override;
    int64_t Command(int32_t kind, void* arg, uint64_t* out) override;
    int32_t ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink) override;
    QVString GetName() override;

    COutputFormatDlg* GetPanel() const { return panel.get(); }

    QM_PLAYER_CORE_SETTINGS_PLAYBACK settings;
    CAudioFormat format;

private:
    std::unique_ptr<COutputFormatDlg> panel;
};
