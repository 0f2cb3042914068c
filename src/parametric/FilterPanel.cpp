#include "parametric/FilterPanel.h"

#include <algorithm>

#include "parametric/ParametricFilter.h"

CFilterPanel::CFilterPanel(int32_t configuredChannels) : playerChannels(configuredChannels) {}

void CFilterPanel::Clear()
{
    controls.clear();
}

CFilterControl& CFilterPanel::Add(int32_t id, EFilterControlKind kind, const char16_t* label,
                                  const char16_t* unit)
{
    CFilterControl control;
    control.id = id;
    control.kind = kind;
    control.label = TranslateText(label);
    control.unit = TranslateText(unit);
    controls.push_back(std::move(control));
    return controls.back();
}

CFilterControl* CFilterPanel::Find(int32_t id)
{
    for (auto& control : controls)
    {
        if (control.id == id)
            return &control;
    }
    return nullptr;
}

void CFilterPanel::AddChannelChoices(CFilterControl& control) const
{
    auto add = [&control](int32_t id) {
        control.choices.push_back({CAudioFormat::GetChannelName(id, false), id});
    };
    for (int32_t id = CAudioFormat::Left; id <= CAudioFormat::RearRight; ++id)
        add(id);
    add(CAudioFormat::User1);
    add(CAudioFormat::User2);
    // Channel 10 (rear centre) is left out on purpose; numbered channels follow
    // as far as the player is set up for more than eight.
    const int32_t extra = std::max(8, playerChannels) - 8;
    for (int32_t i = 0; i < extra && CAudioFormat::FirstNumbered + i <= CAudioFormat::LastNumbered;
         ++i)
        add(CAudioFormat::FirstNumbered + i);
}

double CFilterPanel::GetNumber(int32_t id, double fallback)
{
    CFilterControl* control = Find(id);
    return control != nullptr ? control->text.ToDouble() : fallback;
}

void CFilterPanel::SetNumber(int32_t id, double value, int32_t decimals)
{
    if (CFilterControl* control = Find(id))
        control->text = decimals < 0 ? QVString::FromDouble(value) : NumberText(value, decimals);
}

QVString CFilterPanel::GetText(int32_t id)
{
    CFilterControl* control = Find(id);
    return control != nullptr ? control->text : QVString();
}

void CFilterPanel::SetText(int32_t id, const QVString& text)
{
    if (CFilterControl* control = Find(id))
        control->text = text;
}

int32_t CFilterPanel::GetChoice(int32_t id, int32_t fallback)
{
    CFilterControl* control = Find(id);
    if (control == nullptr || control->selection.empty())
        return fallback;
    return control->selection.front();
}

void CFilterPanel::SetChoice(int32_t id, int32_t value)
{
    if (CFilterControl* control = Find(id))
        control->selection.assign(1, value);
}

std::vector<int32_t> CFilterPanel::GetSelection(int32_t id)
{
    CFilterControl* control = Find(id);
    return control != nullptr ? control->selection : std::vector<int32_t>();
}

void CFilterPanel::SetSelection(int32_t id, const std::vector<int32_t>& values)
{
    if (CFilterControl* control = Find(id))
        control->selection = values;
}

bool CFilterPanel::GetChecked(int32_t id)
{
    CFilterControl* control = Find(id);
    return control != nullptr && control->checked;
}

void CFilterPanel::SetChecked(int32_t id, bool value)
{
    if (CFilterControl* control = Find(id))
        control->checked = value;
}

void CFilterPanel::SetVisible(int32_t id, bool visible)
{
    if (CFilterControl* control = Find(id))
        control->visible = visible;
}

void CFilterPanel::ShowMessageLater(const char16_t* title, const char16_t* text, int64_t delayMs)
{
    pendingMessages.push_back({TranslateText(title), TranslateText(text), clockMs + delayMs});
}

void CFilterPanel::AdvanceClock(int64_t milliseconds)
{
    clockMs += milliseconds;
    auto due = [this](const CFilterPanelMessage& message) { return message.dueMs <= clockMs; };
    for (const auto& message : pendingMessages)
    {
        if (due(message))
            shownMessages.push_back(message);
    }
    pendingMessages.erase(std::remove_if(pendingMessages.begin(), pendingMessages.end(), due),
                          pendingMessages.end());
}
