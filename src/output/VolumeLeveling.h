// Volume Leveling is a stage of the host's playback; here it is only its
// panel, a page of text. Blocks pass through untouched.
#pragma once

#include <memory>

#include "frame/PanelModel.h"
#include "frame/QVDSPBase.h"

class CVolumeLevelingDSPPlugin;

class CVolumeLevelingDlg : public QVTextPanelModel
{
public:
    explicit CVolumeLevelingDlg(CVolumeLevelingDSPPlugin* plugin);
};

class CVolumeLevelingDSPPlugin : public QVDSPBase
{
public:
    CVolumeLevelingDSPPlugin(IQVDSPHost* host, int32_t zone);
    ~CVolumeLevelingDSPPlugin() override;

    int32_t Flush() override;
    int32_t SetFormat(const CAudioFormat& format) override;
    int64_t Command(int32_t kind, void* arg, uint64_t* out) override;
    int32_t ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink) override;
    QVString GetName() override;

    CVolumeLevelingDlg* GetPanel() const { return panel.get(); }

    CAudioFormat format;

private:
    std::unique_ptr<CVolumeLevelingDlg> panel;
};
