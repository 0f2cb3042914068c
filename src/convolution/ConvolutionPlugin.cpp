#include "convolution/ConvolutionPlugin.h"

#include "convolution/ConvolutionDlg.h"
#include "frame/IQVTools.h"
#include "frame/PanelModel.h"

CConvolutionDSPPlugin::CConvolutionDSPPlugin(IQVDSPHost* pluginHost, int32_t pluginZone)
    : QVDSPBase(pluginHost, pluginZone), convolution(pluginZone)
{
}

CConvolutionDSPPlugin::~CConvolutionDSPPlugin()
{
    ClosePanelModel(panel);
}

int32_t CConvolutionDSPPlugin::Flush()
{
    convolution.Reset();
    return 0;
}

int32_t CConvolutionDSPPlugin::SetFormat(const CAudioFormat& newFormat)
{
    // A filter that cannot load leaves the plug-in in the chain, passing
    // blocks on; the host is not told.
    convolution.Load(&newFormat, false);
    return 0;
}

int64_t CConvolutionDSPPlugin::Command(int32_t kind, void* arg, uint64_t*)
{
    switch (kind)
    {
    case DSPCMD_OPEN_PANEL: return OpenPanelModel(panel, *this);
    case DSPCMD_CLOSE_PANEL: return ClosePanelModel(panel);
    case DSPCMD_SET_STATE:
    {
        const bool state = arg != nullptr && *static_cast<const bool*>(arg);
        if (state != active)
        {
            active = state;
            convolution.Reset();
        }
        return -1;
    }
    case DSPCMD_QUERY_FLAG: return 1;
    // Read without the lock: a figure of the moment, like the panel's.
    case DSPCMD_GET_LATENCY: return static_cast<int64_t>(convolution.GetLatency());
    case DSPCMD_DESCRIBE:
    {
        if (auto* list = static_cast<IStatusList*>(arg))
            list->Add(GetDescription().c_str(), 0);
        return 0;
    }
    default: return -1;
    }
}

QVString CConvolutionDSPPlugin::GetDescription()
{
    QVString text = QVTranslated(u"Convolution");
    text += QVString::Format(u" %.2fX ", convolution.performance);
    text += QVTranslated(u"real-time");
    if (convolution.useSSE)
        text += QVTranslated(u" (using SSE)");
    return text;
}

int32_t CConvolutionDSPPlugin::ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink)
{
    bool handled = false;
    {
        std::lock_guard<std::recursive_mutex> guard(convolution.lock);
        if (convolution.IsValid())
        {
            convolution.Process(samples, frames);
            const int32_t ready = convolution.GetOutputFrames();
            // The engine's buffer is handed on inside the lock: a load from
            // the panel must not free it under the next stage's feet.
            if (ready > 0 && sink != nullptr)
                sink->Output(convolution.GetOutput(), ready);
            handled = true;
        }
    }
    if (!handled && sink != nullptr)
        sink->Output(samples, frames);
    return 0;
}

QVString CConvolutionDSPPlugin::GetName()
{
    return QVString(u"Convolution");
}
