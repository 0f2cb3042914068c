// A static waveshaper: every sample passes through one cubic curve. It has no
// parameters, no settings, no state and no lock.
#pragma once

#include <memory>

#include "frame/PanelModel.h"
#include "frame/QVDSPBase.h"

class CTubeAmplifierDSPPlugin;

class CTubeAmplifierDlg : public QVTextPanelModel
{
public:
    explicit CTubeAmplifierDlg(CTubeAmplifierDSPPlugin* plugin);
};

class CTubeAmplifierDSPPlugin : public QVDSPBase
{
public:
    CTubeAmplifierDSPPlugin(IQVDSPHost* host, int32_t zone);
    ~CTubeAmplifierDSPPlugin() override;

    int32_t Flush() override;
    int32_t SetFormat(const CAudioFormat& format) override;
    int64_t Command(int32_t kind, void* arg, uint64_t* out) override;
    int32_t ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink) override;
    QVString GetName() override;

    // y = 1.5x - 0.5x^3 in the operation order that gives exact results: 1 at
    // x = 1 with a flat top, and no clamp, so that beyond |x| = 1 the curve bends
    // back and beyond sqrt(3) flips polarity.
    static double Shape(double x) { return (1.0 - x * x / 3.0) * (x * 3.0 * 0.5); }
    // Shapes `count` samples in place.
    static void ShapeSamples(double* samples, size_t count);

    CTubeAmplifierDlg* GetPanel() const { return panel.get(); }

    CAudioFormat format;

private:
    std::unique_ptr<CTubeAmplifierDlg> panel;
};
