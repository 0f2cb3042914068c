// The panel of Convolution as a window-less model: the filter field with its
// recent choices, three check boxes, "Reload" and "Reset", and a status text.
// Its two timers run on an explicit clock in milliseconds that the owner
// advances, so that tests and the command-line host drive them exactly, or on
// timers of the thread that owns the panel, as a windowed panel's do.
#pragma once

#include <cstdint>
#include <memory>

#include "core/QVString.h"
#include "core/QVStringArray.h"
#include "frame/PanelModel.h"

class CConvolutionDSPPlugin;

class CConvolutionDlg : public QVPanelModel
{
public:
    static constexpr const char16_t* INTRO_TEXT =
        u"Convolution enables sophisticated time and frequency adjustments.\r\n\r\n";
    static constexpr const char16_t* INTRO_TEXT_2 =
        u"Convolution requires a filter file tailored for your speakers and room.  There are "
        u"several third-party tools available to help make filter files.";
    static constexpr const char16_t* SETTINGS_HEADING = u"Settings";
    static constexpr const char16_t* FILTER_LABEL =
        u"Filter (impulse audio file or convolver text configuration):";
    static constexpr const char16_t* NORMALIZE_LABEL = u"Normalize filter volume (recommended)";
    static constexpr const char16_t* SMALL_LABEL = u"Use small filters to reduce latency";
    static constexpr const char16_t* AUTO_MATCH_LABEL =
        u"Automatically switch filter based on input format (recommended)";
    static constexpr const char16_t* RELOAD_BUTTON = u"Reload";
    static constexpr const char16_t* RESET_BUTTON = u"Reset";
    static constexpr const char16_t* STATUS_HEADING = u"Status";
    static constexpr const char16_t* STATUS_FORMAT =
        u"Processing: %d paths\r\nPerformance: %.1fX real-time%s\r\nFilter: %s";
    static constexpr const char16_t* NOT_VALID = u"Not valid";
    static constexpr const char16_t* USING_SSE = u" (using SSE)";

    // Timer 1 repaints the status; timer 2 applies a typed filter name once
    // the typing has paused this long.
    static constexpr int64_t STATUS_TIMER_MS = 1000;
    static constexpr int64_t FILTER_TIMER_MS = 1000;
    static constexpr int32_t STATUS_TIMER_ID = 1;
    static constexpr int32_t FILTER_TIMER_ID = 2;

    explicit CConvolutionDlg(CConvolutionDSPPlugin& plugin);
    ~CConvolutionDlg() override;

    void Open() override;
    // Takes every value from the engine; change handlers are quiet meanwhile.
    void Refresh();

    // The user typed in the filter field at time `nowMs`.
    void EditFilter(const QVString& text, int64_t nowMs);
    // The clock moved to `nowMs`: due timers fire.
    void AdvanceClock(int64_t nowMs);
    // From now on both timers are timers of the calling thread, which fire
    // when it pumps its commands and timers; the clock above drives nothing.
    // A filter timer that is armed starts its full delay again.
    void UseThreadTimers();
    void ClickNormalize(bool checked);
    void ClickSmallFilters(bool checked);
    void ClickAutoMatch(bool checked);
    void ClickReload();
    void ClickReset();

    // The status text of the engine as it is now, translated.
    QVString MakeStatusText() const;

    const QVString& GetFilterText() const { return filterText; }
    const QVStringArray& GetFilterList() const { return filterList; }
    bool IsNormalizeChecked() const { return normalizeChecked; }
    bool IsSmallFiltersChecked() const { return smallChecked; }
    bool IsAutoMatchChecked() const { return autoMatchChecked; }
    const QVString& GetStatusText() const { return statusText; }
    bool IsFilterTimerArmed() const { return filterTimerArmed; }
    int32_t GetStatusRepaints() const { return statusRepaints; }
    QVString GetIntroText() const;

private:
    class CTimers;
    void OnTimer(int32_t id);
    void RepaintStatus();
    void FireFilterTimer();
    void Changed();
    void ApplyTypedFilter();

    CConvolutionDSPPlugin& plugin;
    bool refreshing = false;  // the guard of the change handlers
    QVString filterText;
    QVStringArray filterList;
    bool normalizeChecked = true;
    bool smallChecked = false;
    bool autoMatchChecked = true;
    QVString statusText;
    bool filterTimerArmed = false;
    int64_t filterTimerDue = 0;   // on the explicit clock
    int64_t statusTimerDue = -1;  // -1: not started
    int32_t statusRepaints = 0;
    std::unique_ptr<CTimers> timers;  // only once UseThreadTimers is called
};
