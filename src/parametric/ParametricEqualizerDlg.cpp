#include "parametric/ParametricEqualizerDlg.h"

#include <algorithm>
#include <mutex>

#include "core/QVCmdTarget.h"
#include "parametric/ParametricEqualizerPlugin.h"

class CParametricEqualizerDlg::CSaveTimer : public QVCmdTarget
{
public:
    explicit CSaveTimer(CParametricEqualizerDlg& panel) : panel(panel) { Create(); }

protected:
    void OnTimer(int32_t id) override
    {
        if (id == SAVE_TIMER_ID)
            panel.OnSaveTimer();
    }

private:
    CParametricEqualizerDlg& panel;
};

CParametricEqualizerDlg::CParametricEqualizerDlg(CParametricEqualizerDSPPlugin& owner)
    : plugin(owner), list(owner.GetFilterList())
{
}

CParametricEqualizerDlg::~CParametricEqualizerDlg()
{
    std::lock_guard<std::recursive_mutex> guard(list.lock);
    for (const auto& filter : list.filters)
    {
        if (filter->GetPanel() == &detailPanel)
            filter->DetachFromPanel();
        filter->SetParentList(nullptr);
    }
}

void CParametricEqualizerDlg::Open()
{
    std::lock_guard<std::recursive_mutex> guard(list.lock);
    for (const auto& filter : list.filters)
        filter->SetParentList(this);
    Refresh();
}

void CParametricEqualizerDlg::Close()
{
    {
        std::lock_guard<std::recursive_mutex> guard(list.lock);
        applying = true;  // detaching notifies; nothing to schedule now
        for (const auto& filter : list.filters)
        {
            if (filter->GetPanel() == &detailPanel)
                filter->DetachFromPanel();
        }
        applying = false;
    }
    if (savePending)
        Apply();
    std::lock_guard<std::recursive_mutex> guard(list.lock);
    for (const auto& filter : list.filters)
        filter->SetParentList(nullptr);
}

int32_t CParametricEqualizerDlg::GetItemCount()
{
    return list.GetCount();
}

QVString CParametricEqualizerDlg::GetItemText(int32_t row)
{
    std::lock_guard<std::recursive_mutex> guard(list.lock);
    CParametricFilter* filter = list.GetAt(row);
    return filter != nullptr ? filter->GetDescription() : QVString();
}

bool CParametricEqualizerDlg::GetItemEnabled(int32_t row)
{
    std::lock_guard<std::recursive_mutex> guard(list.lock);
    CParametricFilter* filter = list.GetAt(row);
    return filter != nullptr && filter->IsEnabled();
}

void CParametricEqualizerDlg::SetItemEnabled(int32_t row, bool enabled)
{
    {
        std::lock_guard<std::recursive_mutex> guard(list.lock);
        CParametricFilter* filter = list.GetAt(row);
        if (filter == nullptr)
            return;
        // Takes effect at the next block; only the save waits.
        filter->SetEnabled(enabled);
    }
    ScheduleSave();
}

std::vector<CFilterChoice> CParametricEqualizerDlg::GetAddMenu() const
{
    std::vector<CFilterChoice> menu;
    for (int32_t type = PARAMETRIC_FIRST_TYPE; type <= PARAMETRIC_LAST_TYPE; ++type)
    {
        QVString name = GetParametricFilterName(type);
        if (!name.IsEmpty())
            menu.push_back({TranslateText(name.c_str()), type});
    }
    return menu;
}

int32_t CParametricEqualizerDlg::AddFilter(int32_t type, int32_t row)
{
    std::unique_ptr<CParametricFilter> filter(CreateParametricFilter(type));
    if (!filter)
        return -1;
    filter->SetParentList(this);
    const int32_t at = list.Insert(row, std::move(filter));
    if (selection >= at)
        ++selection;
    Refresh();
    ScheduleSave();
    return at;
}

bool CParametricEqualizerDlg::RemoveFilter(int32_t row, bool confirmed)
{
    if (!confirmed)
        return false;
    {
        std::lock_guard<std::recursive_mutex> guard(list.lock);
        CParametricFilter* filter = list.GetAt(row);
        if (filter == nullptr)
            return false;
        applying = true;
        filter->DetachFromPanel();
        applying = false;
        list.Remove(row);
        if (selection == row)
            selection = -1;
        else if (selection > row)
            --selection;
    }
    Refresh();
    ScheduleSave();
    return true;
}

bool CParametricEqualizerDlg::MoveFilter(int32_t from, int32_t to)
{
    {
        std::lock_guard<std::recursive_mutex> guard(list.lock);
        const int32_t count = list.GetCount();
        if (from < 0 || from >= count)
            return false;
        to = std::clamp(to, 0, count - 1);
        list.Move(from, to);
        if (selection == from)
            selection = to;
    }
    Refresh();
    ScheduleSave();
    return true;
}

bool CParametricEqualizerDlg::OnKey(char16_t key)
{
    if (selection < 0)
        return false;
    switch (key)
    {
    case KEY_DELETE:
    case u'R':
    case u'r': return RemoveFilter(selection, true);
    case u'D':
    case u'd': return selection + 1 < GetItemCount() && MoveFilter(selection, selection + 1);
    case u'U':
    case u'u': return selection > 0 && MoveFilter(selection, selection - 1);
    default: return false;
    }
}

void CParametricEqualizerDlg::Select(int32_t row)
{
    selection = (row >= 0 && row < GetItemCount()) ? row : -1;
    AttachSelected();
    Refresh();
}

void CParametricEqualizerDlg::AttachSelected()
{
    std::lock_guard<std::recursive_mutex> guard(list.lock);
    const bool wasApplying = applying;
    applying = true;
    for (int32_t row = 0; row < static_cast<int32_t>(list.filters.size()); ++row)
    {
        CParametricFilter* filter = list.filters[static_cast<size_t>(row)].get();
        if (row != selection && filter->GetPanel() == &detailPanel)
            filter->DetachFromPanel();
    }
    if (CParametricFilter* chosen = list.GetAt(selection))
    {
        if (chosen->GetPanel() != &detailPanel)
            chosen->AttachToPanel(&detailPanel);
    }
    applying = wasApplying;
}

void CParametricEqualizerDlg::Refresh()
{
    ++refreshCount;
}

void CParametricEqualizerDlg::OnFilterNotify(CParametricFilter*, int32_t what)
{
    if (applying)
        return;  // an update of a control while applying starts no new save
    if (what == 0)
        ScheduleSave();
    else
        Apply();
}

void CParametricEqualizerDlg::ScheduleSave()
{
    // Each change restarts the timer, so typing doesn't save for every key.
    savePending = true;
    saveDueMs = clockMs + SAVE_DELAY_MS;
    if (saveTimer)
        saveTimer->SetTimer(SAVE_TIMER_ID, static_cast<int32_t>(SAVE_DELAY_MS));
}

void CParametricEqualizerDlg::UseThreadTimer()
{
    if (!saveTimer)
        saveTimer = std::make_unique<CSaveTimer>(*this);
    if (savePending)
        saveTimer->SetTimer(SAVE_TIMER_ID, static_cast<int32_t>(SAVE_DELAY_MS));
}

void CParametricEqualizerDlg::OnSaveTimer()
{
    saveTimer->KillTimer(SAVE_TIMER_ID);  // one-shot
    if (savePending)
        Apply();
}

void CParametricEqualizerDlg::AdvanceClock(int64_t milliseconds)
{
    clockMs += milliseconds;
    detailPanel.AdvanceClock(milliseconds);
    if (!saveTimer && savePending && clockMs >= saveDueMs)
        Apply();
}

void CParametricEqualizerDlg::Apply()
{
    // Cleared before the timer is killed: killing runs a tick that is due
    // already, and that tick must find nothing left to save.
    savePending = false;
    if (saveTimer)
        saveTimer->KillTimer(SAVE_TIMER_ID);
    {
        std::lock_guard<std::recursive_mutex> guard(list.lock);
        applying = true;
        for (const auto& filter : list.filters)
            filter->UpdateValuesFromPanel();
        Refresh();
        list.Save();
        applying = false;
    }
    if (plugin.host != nullptr)
        plugin.host->NotifyChanged(true);
}
