#include "convolution/ConvolutionDlg.h"

#include "convolution/ConvolutionPlugin.h"
#include "frame/IQVTools.h"

CConvolutionDlg::CConvolutionDlg(CConvolutionDSPPlugin& owner) : plugin(owner) {}

void CConvolutionDlg::Open()
{
    Refresh();
}

QVString CConvolutionDlg::GetIntroText() const
{
    return QVTranslated(INTRO_TEXT) + QVTranslated(INTRO_TEXT_2);
}

void CConvolutionDlg::Refresh()
{
    refreshing = true;
    CAudioConvolution& engine = plugin.GetConvolution();
    filterText = engine.GetFilter(false);
    {
        std::lock_guard<std::recursive_mutex> guard(engine.lock);
        filterList = engine.GetPathChoices();
    }
    normalizeChecked = engine.GetVolumeMode() == 0;
    smallChecked = engine.GetSmallFilters();
    autoMatchChecked = engine.GetAutoMatchFilter();
    statusText = MakeStatusText();
    refreshing = false;
}

QVString CConvolutionDlg::MakeStatusText() const
{
    // Read without the lock, as a figure of the moment.
    CAudioConvolution& engine = plugin.GetConvolution();
    if (!engine.IsValid())
        return QVTranslated(NOT_VALID);
    const QVString sse = engine.useSSE ? QVTranslated(USING_SSE) : QVString();
    return QVString::Format(QVTranslated(STATUS_FORMAT).c_str(), engine.paths.GetCount(),
                            engine.performance, sse, engine.GetFilter(true));
}

void CConvolutionDlg::Changed()
{
    if (plugin.host != nullptr)
        plugin.host->NotifyChanged(true);
}

void CConvolutionDlg::EditFilter(const QVString& text, int64_t nowMs)
{
    if (refreshing)
        return;
    filterText = text;
    // Each key re-arms the timer: a half-typed name is never loaded.
    filterTimerDue = nowMs + FILTER_TIMER_MS;
}

void CConvolutionDlg::AdvanceClock(int64_t nowMs)
{
    if (statusTimerDue < 0)
        statusTimerDue = nowMs + STATUS_TIMER_MS;
    while (nowMs >= statusTimerDue)
    {
        statusText = MakeStatusText();
        ++statusRepaints;
        statusTimerDue += STATUS_TIMER_MS;
    }
    if (filterTimerDue >= 0 && nowMs >= filterTimerDue)
    {
        filterTimerDue = -1;  // one-shot: killed before it acts
        ApplyTypedFilter();
    }
}

void CConvolutionDlg::ApplyTypedFilter()
{
    CAudioConvolution& engine = plugin.GetConvolution();
    const QVString text = filterText;
    engine.AddPathChoice(text);
    {
        std::lock_guard<std::recursive_mutex> guard(engine.lock);
        filterList = engine.GetPathChoices();
    }
    engine.SetFilter(text);
    Changed();
}

void CConvolutionDlg::ClickNormalize(bool checked)
{
    if (refreshing)
        return;
    normalizeChecked = checked;
    plugin.GetConvolution().SetVolumeMode(checked ? 0 : 1);
    Changed();
}

void CConvolutionDlg::ClickSmallFilters(bool checked)
{
    if (refreshing)
        return;
    smallChecked = checked;
    plugin.GetConvolution().SetSmallFilters(checked);
    Changed();
}

void CConvolutionDlg::ClickAutoMatch(bool checked)
{
    if (refreshing)
        return;
    autoMatchChecked = checked;
    plugin.GetConvolution().SetAutoMatchFilter(checked);
    Changed();
}

void CConvolutionDlg::ClickReload()
{
    if (refreshing)
        return;
    CAudioConvolution& engine = plugin.GetConvolution();
    std::lock_guard<std::recursive_mutex> guard(engine.lock);
    engine.Load(&engine.format, true);
    statusText = MakeStatusText();
}

void CConvolutionDlg::ClickReset()
{
    if (refreshing)
        return;
    plugin.GetConvolution().ClearPathChoices();
    Refresh();
    Changed();
}
