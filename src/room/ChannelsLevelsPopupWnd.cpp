#include "room/ChannelsLevelsPopupWnd.h"

#include <mutex>

#include "frame/IQVTools.h"
#include "room/ChannelsDSP.h"

CChannelsLevelsPopupWnd::CChannelsLevelsPopupWnd(CChannelsDSP& owner) : channels(owner) {}

QVString CChannelsLevelsPopupWnd::GetTitle() const
{
    return QVTranslated(TITLE);
}

QVString CChannelsLevelsPopupWnd::GetHeadText() const
{
    return QVTranslated(HEAD_TEXT);
}

QVString CChannelsLevelsPopupWnd::GetRowLabel(int32_t row) const
{
    return CAudioFormat::GetChannelName(row + CAudioFormat::Left, true);
}

QVString CChannelsLevelsPopupWnd::GetUnit() const
{
    return QVTranslated(UNIT);
}

void CChannelsLevelsPopupWnd::SetField(int32_t row, const QVString& text)
{
    if (row >= 0 && row < ROW_COUNT)
        fields[row] = text;
}

bool CChannelsLevelsPopupWnd::Accept()
{
    messageCaption.Empty();
    messageText.Empty();
    double readings[ROW_COUNT];
    for (int32_t row = 0; row < ROW_COUNT; ++row)
        readings[row] = fields[row].IsEmpty() ? 0.0 : fields[row].ToDouble();
    // Only an exact 0 counts as missing: a reading of 0.001 dB is a reading.
    if (readings[CChannelDSP::LEFT] == 0.0 || readings[CChannelDSP::RIGHT] == 0.0)
    {
        messageCaption = QVTranslated(MISSING_CAPTION);
        messageText = QVTranslated(MISSING_TEXT);
        return false;
    }

    std::lock_guard<std::recursive_mutex> guard(channels.lock);
    const double leftLevelDb = channels.Speaker(CChannelDSP::LEFT).levelDB;
    for (int32_t row = 0; row < ROW_COUNT; ++row)
    {
        CChannelDSP& speaker = channels.Speaker(row);
        // A speaker without a reading goes back to 0 dB, on purpose: it is
        // not calibrated, so no old trim should pretend it is.
        if (row == CChannelDSP::LEFT || readings[row] == 0.0)
            speaker.levelDB = 0.0;
        else
            speaker.levelDB = (speaker.levelDB - leftLevelDb) + (readings[0] - readings[row]);
    }
    return true;
}
