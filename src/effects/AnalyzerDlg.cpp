#include "effects/AnalyzerDlg.h"

#include <cmath>
#include <limits>

#include "frame/SettingsKey.h"

namespace
{

CZoneSettingsKey RangeKey(int32_t zone)
{
    return CZoneSettingsKey(zone, QVString(CAnalyzerDSPPlugin::SUBKEY),
                            QVString(CAnalyzerDlg::RANGE_LEGACY_KEY), QVString());
}

// Stored as whole Hz, truncated; values beyond an integer are pinned to it.
int32_t StoredHz(double frequencyHz)
{
    if (!(frequencyHz == frequencyHz))
        return 0;
    const double truncated = std::trunc(frequencyHz);
    if (truncated >= std::numeric_limits<int32_t>::max())
        return std::numeric_limits<int32_t>::max();
    if (truncated <= std::numeric_limits<int32_t>::min())
        return std::numeric_limits<int32_t>::min();
    return static_cast<int32_t>(truncated);
}

}  // namespace

QVString CAnalyzerDlg::FrequencyText(double frequencyHz)
{
    if (frequencyHz >= 1000.0)
        return QVString::Format(u"%.1fK", frequencyHz / 1000.0);
    return QVString::Format(u"%d", StoredHz(frequencyHz));
}

double CAnalyzerDlg::ParseFrequency(const QVString& text)
{
    // The number is read with every "K" taken out, so "K" may stand anywhere.
    QVString digits;
    bool kilo = false;
    for (const char16_t* p = text.c_str(); *p; ++p)
    {
        if (*p == u'K')
            kilo = true;
        else
            digits = digits + *p;
    }
    const double value = digits.ToDouble();
    return kilo ? value * 1000.0 : value;
}

CAnalyzerDlg::CAnalyzerDlg(CAnalyzerDSPPlugin& owner) : plugin(owner)
{
    CZoneSettingsKey key = RangeKey(plugin.zone);
    minimumHz = key.ReadInt(QVString(MINIMUM_VALUE), DEFAULT_MINIMUM_HZ);
    maximumHz = key.ReadInt(QVString(MAXIMUM_VALUE), DEFAULT_MAXIMUM_HZ);
    fftSize = plugin.GetFftSize();
    highResolution = plugin.GetHighResolution();
    ApplyRange();
}

void CAnalyzerDlg::Open()
{
    FillFields();
}

void CAnalyzerDlg::FillFields()
{
    filling = true;
    SetMinimumText(FrequencyText(minimumHz));
    SetMaximumText(FrequencyText(maximumHz));
    SetHighResolution(plugin.GetHighResolution());
    filling = false;
}

void CAnalyzerDlg::SetMinimumText(const QVString& text)
{
    minimumText = text;
    if (!filling)
        RangeChanged();
}

void CAnalyzerDlg::SetMaximumText(const QVString& text)
{
    maximumText = text;
    if (!filling)
        RangeChanged();
}

void CAnalyzerDlg::RangeChanged()
{
    minimumHz = ParseFrequency(minimumText);
    maximumHz = ParseFrequency(maximumText);
    if (!plugin.transient)
    {
        CSettingsTransaction transaction;
        CZoneSettingsKey key = RangeKey(plugin.zone);
        key.WriteInt(QVString(MINIMUM_VALUE), StoredHz(minimumHz));
        key.WriteInt(QVString(MAXIMUM_VALUE), StoredHz(maximumHz));
    }
    ApplyRange();
}

void CAnalyzerDlg::SetHighResolution(bool checked)
{
    highResolution = checked;
    if (filling)
        return;
    plugin.SetHighResolution(checked);
    fftSize = plugin.GetFftSize();
    ApplyRange();
}

void CAnalyzerDlg::ApplyRange()
{
    draw.SetRange(minimumHz, maximumHz, fftSize);
}

bool CAnalyzerDlg::PullFrame()
{
    const bool computed = plugin.UpdateFrame(frame);
    if (computed)
        ++framesComputed;
    return computed;
}

bool CAnalyzerDlg::Paint(const CAnalyzerRect& plot)
{
    const bool computed = PullFrame();
    draw.SetRectangle(plot);
    traces.clear();
    if (framesComputed > 0)
        traces = draw.ComputeTraces(frame);
    levelLine = CSoundAnalyzerDraw::LevelLine(frame);
    return computed;
}
