#include "convolution/ConvolutionDlg.h"

#include "convolution/ConvolutionPlugin.h"
#include "core/QVCmdTarget.h"
#include "frame/IQVTools.h"

// The panel's timers on the thread that owns it.
class CConvolutionDlg::CTimers : public QVCmdTarget
{
public:
    explicit CTimers(CConvolutionDlg& panel) : panel(panel) { Create(); }

protected:
    void OnTimer(int32_t id) override { panel.OnTimer(id); }

private:
    CConvolutionDlg& panel;
};

CConvolutionDlg::CConvolutionDlg(CConvolutionDSPPlugin& owner) : plugin(owner) {}

// The timers go first, on the owner thread that closes the panel.
CConvolutionDlg::~CConvolutionDlg() = default;

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
    filterTimerArmed = true;
    filterTimerDue = nowMs + FILTER_TIMER_MS;
    if (timers)
        timers->SetTimer(FILTER_TIMER_ID, static_cast<int32_t>(FILTER_TIMER_MS));
}

void CConvolutionDlg::AdvanceClock(int64_t nowMs)
{
    if (timers)
        return;
    if (statusTimerDue < 0)
        statusTimerDue = nowMs + STATUS_TIMER_MS;
    while (nowMs >= statusTimerDue)
    {
        RepaintStatus();
        statusTimerDue += STATUS_TIMER_MS;
    }
    if (filterTimerArmed && nowMs >= filterTimerDue)
        FireFilterTimer();
}

void CConvolutionDlg::UseThreadTimers()
{
    if (timers)
        return;
    timers = std::make_unique<CTimers>(*this);
    timers->SetTimer(STATUS_TIMER_ID, static_cast<int32_t>(STATUS_TIMER_MS));
    if (filterTimerArmed)
        timers->SetTimer(FILTER_TIMER_ID, static_cast<int32_t>(FILTER_TIMER_MS));
}

void CConvolutionDlg::OnTimer(int32_t id)
{
    if (id == STATUS_TIMER_ID)
        RepaintStatus();
    else if (id == FILTER_TIMER_ID && filterTimerArmed)
        FireFilterTimer();
}

void CConvolutionDlg::RepaintStatus()
{
    statusText = MakeStatusText();
    ++statusRepaints;
}

void CConvolutionDlg::FireFilterTimer()
{
    // One-shot: disarmed before the kill, which runs the timers that are due
    // already, so that a tick found there applies nothing twice.
    filterTimerArmed = false;
    if (timers)
        timers->KillTimer(FILTER_TIMER_ID);
    ApplyTypedFilter();
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
