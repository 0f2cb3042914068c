#include "parametric/FilterPanel.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>

#include "parametric/ParametricFilter.h"
#include "parametric/RoutingFilters.h"

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

namespace
{

struct NumberRange
{
    const char16_t* key;
    double minimum;
    double maximum;
    const char16_t* unit;
};

// Frequencies and Q as far as the IIR design takes them (a frequency of 0
// would divide by zero in the bilinear transform); gains and levels as far as
// 24-bit audio can show a difference; the delay as far as its edit clamps.
constexpr double MIN_FREQUENCY_HZ = 0.01;
constexpr double MAX_FREQUENCY_HZ = 10000000.0;
constexpr double MIN_Q = 0.01;
constexpr double MAX_Q = 10000.0;
constexpr double MAX_GAIN_DB = 120.0;
constexpr double MAX_ATTACK_US = 10000000.0;
constexpr double MAX_TIME_MS = 1000000.0;

constexpr NumberRange NUMBER_RANGES[] = {
    {u"Frequency", MIN_FREQUENCY_HZ, MAX_FREQUENCY_HZ, u"Hz"},
    {u"Fz", MIN_FREQUENCY_HZ, MAX_FREQUENCY_HZ, u"Hz"},
    {u"Fp", MIN_FREQUENCY_HZ, MAX_FREQUENCY_HZ, u"Hz"},
    {u"Q", MIN_Q, MAX_Q, u""},
    {u"Qz", MIN_Q, MAX_Q, u""},
    {u"Qp", MIN_Q, MAX_Q, u""},
    {u"Gain", -MAX_GAIN_DB, MAX_GAIN_DB, u"dB"},
    {u"Level", -MAX_GAIN_DB, MAX_GAIN_DB, u"dB"},
    {u"Delay", 0.0, CParametricDelayFilter::MAX_DELAY_MS, u"ms"},
    {u"Attack", 0.0, MAX_ATTACK_US, u"\u00B5s"},
    {u"Hold", 0.0, MAX_TIME_MS, u"ms"},
    {u"Release", 0.0, MAX_TIME_MS, u"ms"},
};

struct ChoiceKey
{
    const char16_t* key;
    const char16_t* label;
};

constexpr ChoiceKey CHOICE_KEYS[] = {
    {u"Slope", u"Slope:"},
    {u"Mode", u"Mode:"},
    {u"Bits", u"Bits:"},
};

// The stored text read exactly, so that "nan" and "inf" stay what they are.
double StoredNumber(const QVString& text)
{
    std::string ascii = text.ToUTF8();
    std::replace(ascii.begin(), ascii.end(), ',', '.');
    return std::strtod(ascii.c_str(), nullptr);
}

QVString RangeProblem(const NumberRange& range, double value)
{
    // Fifteen digits: every value a user typed, and huge ones stay short.
    QVString problem = QVString(range.key) + u" " + FormatText("%.15g", value) + u" is outside " +
                       QVString::FromDouble(range.minimum) + u" to " +
                       QVString::FromDouble(range.maximum);
    if (range.unit[0] != u'\0')
        problem += QVString(u" ") + range.unit;
    return problem;
}

const CFilterControl* FindVisibleChoice(const CFilterPanel& panel, const char16_t* label)
{
    const QVString translated = TranslateText(label);
    for (const CFilterControl& control : panel.GetControls())
    {
        if (control.kind == FILTER_CONTROL_CHOICE && control.visible && control.label == translated)
            return &control;
    }
    return nullptr;
}

QVString ChoiceProblem(const ChoiceKey& choice, const CFilterControl& control, const QVString& text)
{
    QVString accepted;
    for (const CFilterChoice& entry : control.choices)
        accepted +=
            (accepted.IsEmpty() ? QVString() : QVString(u", ")) + QVString::FromInt(entry.value);
    return QVString(choice.key) + u" " + text + u" is none of " + accepted;
}

}  // namespace

QVString FindValueOutsidePanel(CParametricFilter& filter)
{
    QVPropertyMap map;
    filter.Serialize(false, map);
    for (const NumberRange& range : NUMBER_RANGES)
    {
        if (!map.Exists(QVString(range.key)))
            continue;
        const QVString text = map.GetString(QVString(range.key));
        const double value = StoredNumber(text);
        if (!(value >= range.minimum && value <= range.maximum))  // NaN is outside too
            return RangeProblem(range, value);
    }
    CFilterPanel panel;
    CFilterPanel* previous = filter.GetPanel();
    filter.AttachToPanel(&panel);
    QVString problem;
    for (const ChoiceKey& choice : CHOICE_KEYS)
    {
        const CFilterControl* control = FindVisibleChoice(panel, choice.label);
        if (control == nullptr || !map.Exists(QVString(choice.key)) || !problem.IsEmpty())
            continue;
        const QVString text = map.GetString(QVString(choice.key));
        const double value = StoredNumber(text);
        const bool offered =
            std::any_of(control->choices.begin(), control->choices.end(),
                        [value](const CFilterChoice& entry) { return entry.value == value; });
        if (!offered)
            problem = ChoiceProblem(choice, *control, text);
    }
    filter.DetachFromPanel();
    if (previous != nullptr)
        filter.AttachToPanel(previous);
    return problem;
}
