#include "output/VolumeLeveling.h"

CVolumeLevelingDlg::CVolumeLevelingDlg(CVolumeLevelingDSPPlugin* plugin)
    : QVTextPanelModel({
          u"Volume Leveling adjusts the playback volume to the same level for all files.\r\n\r\n",
          u"The industry leading R128 algorithm is used to analyze files and apply the correct "
          u"volume "
          u"during playback.\r\n\r\n",
          u"Intentional volume differences between tracks on the same album are preserved.\r\n\r\n",
          u"The overall volume of a playlist may be reduced.  Enable 'Adaptive Volume' on the left "
          u"to "
          u"compensate for this.",
      })
{
}

CVolumeLevelingDSPPlugin::CVolumeLevelingDSPPlugin(IQVDSPHost* hostObject, int32_t zoneNumber)
    : QVDSPBase(hostObject, zoneNumber)
{
}

CVolumeLevelingDSPPlugin::~CVolumeLevelingDSPPlugin()
{
    ClosePanelModel(panel);
}

QVString CVolumeLevelingDSPPlugin::GetName()
{
    return QVString(u"Volume Leveling");
}

int32_t CVolumeLevelingDSPPlugin::Flush()
{
    return QVDSPBase::Flush();
}

int32_t CVolumeLevelingDSPPlugin::SetFormat(const CAudioFormat& newFormat)
{
    StoreFormat(format, newFormat);
    return 0;
}

int32_t CVolumeLevelingDSPPlugin::ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink)
{
    return QVDSPBase::ProcessBlock(samples, frames, sink);
}

int64_t CVolumeLevelingDSPPlugin::Command(int32_t kind, void* arg, uint64_t* out)
{
    if (kind == DSPCMD_OPEN_PANEL)
        return OpenPanelModel(panel, this);
    if (kind == DSPCMD_CLOSE_PANEL)
        return ClosePanelModel(panel);
    return StatelessCommand(kind);
}
