#include "effects/TubeAmplifier.h"

CTubeAmplifierDlg::CTubeAmplifierDlg(CTubeAmplifierDSPPlugin* plugin)
    : QVTextPanelModel({u"Tube Amplifier does stuff!"})
{
}

CTubeAmplifierDSPPlugin::CTubeAmplifierDSPPlugin(IQVDSPHost* hostObject, int32_t zoneNumber)
    : QVDSPBase(hostObject, zoneNumber)
{
}

CTubeAmplifierDSPPlugin::~CTubeAmplifierDSPPlugin()
{
    ClosePanelModel(panel);
}

QVString CTubeAmplifierDSPPlugin::GetName()
{
    return QVString(u"Tube Amplifier");
}

int32_t CTubeAmplifierDSPPlugin::Flush()
{
    return 0;
}

int32_t CTubeAmplifierDSPPlugin::SetFormat(const CAudioFormat& newFormat)
{
    StoreFormat(format, newFormat);
    return 0;
}

int64_t CTubeAmplifierDSPPlugin::Command(int32_t kind, void* arg, uint64_t* out)
{
    if (kind == DSPCMD_OPEN_PANEL)
        return OpenPanelModel(panel, this);
    if (kind == DSPCMD_CLOSE_PANEL)
        return ClosePanelModel(panel);
    return StatelessCommand(kind);
}

// Interleaving does not matter to a per-sample curve, so the block is one run
// of samples; the loop is unrolled by four, with the same result as the plain one.
void CTubeAmplifierDSPPlugin::ShapeSamples(double* samples, size_t count)
{
    size_t i = 0;
    for (; i + 4 <= count; i += 4)
    {
        const double x0 = samples[i];
        const double x1 = samples[i + 1];
        const double x2 = samples[i + 2];
        const double x3 = samples[i + 3];
        samples[i] = Shape(x0);
        samples[i + 1] = Shape(x1);
        samples[i + 2] = Shape(x2);
        samples[i + 3] = Shape(x3);
    }
    for (; i < count; ++i)
        samples[i] = Shape(samples[i]);
}

int32_t CTubeAmplifierDSPPlugin::ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink)
{
    // A block of fewer than one frame goes on as it came, count and all.
    if (frames >= 1)
        ShapeSamples(samples, static_cast<size_t>(frames) * format.channels);
    sink->Output(samples, frames);
    return 0;
}
