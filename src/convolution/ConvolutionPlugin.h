// Convolution: a thin plug-in over the engine, which it holds by value. The
// engine's lock covers each block including the hand-on of its output, since
// the output lies in the engine's own buffer.
#pragma once

#include <memory>

#include "convolution/AudioConvolution.h"
#include "frame/QVDSPBase.h"

class CConvolutionDlg;

class CConvolutionDSPPlugin : public QVDSPBase
{
public:
    CConvolutionDSPPlugin(IQVDSPHost* host, int32_t zone);
    ~CConvolutionDSPPlugin() override;

    int32_t Flush() override;
    int32_t SetFormat(const CAudioFormat& newFormat) override;
    int64_t Command(int32_t kind, void* arg, uint64_t* out) override;
    int32_t ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink) override;
    QVString GetName() override;

    // "Convolution 41.27X real-time (using SSE)", each part translated.
    QVString GetDescription();

    CAudioConvolution& GetConvolution() { return convolution; }
    CConvolutionDlg* GetPanel() const { return panel.get(); }
    bool IsActive() const { return active; }

private:
    CAudioConvolution convolution;
    std::unique_ptr<CConvolutionDlg> panel;
    // What the host last said with DSPCMD_SET_STATE; only a change matters.
    bool active = false;
};
