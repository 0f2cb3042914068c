#include "output/AdaptiveVolume.h"

#include "frame/IQVTools.h"

const CAdaptiveVolumeDlg::Choice CAdaptiveVolumeDlg::kChoices[kChoiceCount] = {
    {u"1", u"Peak Level Normalize",
     u"Boosts low volume content, while preserving dynamic range.  Uses the peak level from Audio "
     u"Analysis when available.  Works intelligently with Volume Leveling."},
    {u"2", u"Night Mode",
     u"Dynamically adjusts volume to provide a fuller listening experience under low volume "
     u"conditions.  Loud and quiet parts of a movie or song will sound more similar."},
    {u"3", u"Small Speaker Mode", u"Maximizes the volume for smaller, less powerful speakers."},
};

CAdaptiveVolumeDlg::CAdaptiveVolumeDlg(CAdaptiveVolumeDSPPlugin* owner) : plugin(owner) {}

IQVDSPLevelControl* CAdaptiveVolumeDlg::FindLevelControl() const
{
    if (plugin == nullptr || plugin->host == nullptr)
        return nullptr;
    IQVDSPPlayer* player = plugin->host->GetPlayer();
    return player != nullptr ? player->GetLevelControl() : nullptr;
}

void CAdaptiveVolumeDlg::Open()
{
    selected = -1;
    IQVDSPLevelControl* levelControl = FindLevelControl();
    if (levelControl == nullptr)
        return;
    const int32_t mode = levelControl->GetAdaptiveMode();
    for (int32_t i = 0; i < kChoiceCount; ++i)
        if (QVString(kChoices[i].value).ToInt() == mode)
            selected = i;
}

int32_t CAdaptiveVolumeDlg::GetSelectedValue() const
{
    if (selected < 0)
        return 0;
    return static_cast<int32_t>(QVString(kChoices[selected].value).ToInt());
}

void CAdaptiveVolumeDlg::Click(int32_t index)
{
    if (index < 0 || index >= kChoiceCount)
        return;
    selected = index;
    // The host keeps the mode; nothing goes to the store. Without a level
    // control the click reaches nobody.
    IQVDSPLevelControl* levelControl = FindLevelControl();
    if (levelControl == nullptr)
        return;
    levelControl->SetAdaptiveMode(GetSelectedValue());
    plugin->host->NotifyChanged(true);
}

QVString CAdaptiveVolumeDlg::GetHeading() const
{
    return QVTranslated(u"Adaptive Volume adjusts playback volume to enhance the listening "
                        u"experience for various situations.");
}

QVString CAdaptiveVolumeDlg::GetLabel(int32_t index) const
{
    if (index < 0 || index >= kChoiceCount)
        return QVString();
    return QVTranslated(kChoices[index].label);
}

QVString CAdaptiveVolumeDlg::GetDescription(int32_t index) const
{
    if (index < 0 || index >= kChoiceCount)
        return QVString();
    return QVTranslated(kChoices[index].description);
}

CAdaptiveVolumeDSPPlugin::CAdaptiveVolumeDSPPlugin(IQVDSPHost* hostObject, int32_t zoneNumber)
    : QVDSPBase(hostObject, zoneNumber)
{
}

CAdaptiveVolumeDSPPlugin::~CAdaptiveVolumeDSPPlugin()
{
    ClosePanelModel(panel);
}

QVString CAdaptiveVolumeDSPPlugin::GetName()
{
    return QVString(u"Adaptive Volume");
}

int32_t CAdaptiveVolumeDSPPlugin::Flush()
{
    return QVDSPBase::Flush();
}

int32_t CAdaptiveVolumeDSPPlugin::SetFormat(const CAudioFormat& newFormat)
{
    StoreFormat(format, newFormat);
    return 0;
}

int32_t CAdaptiveVolumeDSPPlugin::ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink)
{
    return QVDSPBase::ProcessBlock(samples, frames, sink);
}

int64_t CAdaptiveVolumeDSPPlugin::Command(int32_t kind, void* arg, uint64_t* out)
{
    if (kind == DSPCMD_OPEN_PANEL)
        return OpenPanelModel(panel, this);
    if (kind == DSPCMD_CLOSE_PANEL)
        return ClosePanelModel(panel);
    return StatelessCommand(kind);
}
