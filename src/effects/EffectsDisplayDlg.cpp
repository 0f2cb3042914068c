#include "effects/EffectsDisplayDlg.h"

#include <cmath>

#include "effects/EffectsPlugin.h"
#include "frame/IQVTools.h"

namespace
{

int32_t ChoiceCount(CEffectsDisplayDlg::EGroup group)
{
    switch (group)
    {
    case CEffectsDisplayDlg::GROUP_ENVIRONMENT: return CEffectsEngine::ENVIRONMENT_COUNT;
    case CEffectsDisplayDlg::GROUP_SUBWOOFER: return CEffectsEngine::SUBWOOFER_COUNT;
    case CEffectsDisplayDlg::GROUP_SURROUND: return CEffectsEngine::SURROUND_COUNT;
    default: return 0;
    }
}

const char16_t* ChoiceName(CEffectsDisplayDlg::EGroup group, int32_t index)
{
    switch (group)
    {
    case CEffectsDisplayDlg::GROUP_ENVIRONMENT: return CEffectsEngine::ENVIRONMENTS[index].name;
    case CEffectsDisplayDlg::GROUP_SUBWOOFER: return CEffectsEngine::SUBWOOFERS[index].name;
    default: return CEffectsEngine::SURROUNDS[index].name;
    }
}

}  // namespace

CEffectsDisplayDlg::CEffectsDisplayDlg(CEffectsDSPPlugin& owner) : plugin(owner) {}

QVString CEffectsDisplayDlg::GetHeading(EGroup group) const
{
    return QVTranslated(HEADINGS[group]);
}

QVString CEffectsDisplayDlg::GetHelpText(EGroup group) const
{
    return QVTranslated(HELP_TEXTS[group]);
}

std::vector<QVString> CEffectsDisplayDlg::GetChoices(EGroup group) const
{
    std::vector<QVString> choices;
    for (int32_t index = 0; index < ChoiceCount(group); ++index)
        choices.push_back(QVTranslated(ChoiceName(group, index)));
    return choices;
}

int32_t& CEffectsDisplayDlg::WordOf(EGroup group) const
{
    CDSPSettings::Values& words = plugin.GetSettings().values;
    switch (group)
    {
    case GROUP_ENVIRONMENT: return words.environment;
    case GROUP_SUBWOOFER: return words.virtualSubwoofer;
    default: return words.surroundField;
    }
}

int32_t CEffectsDisplayDlg::GetSelection(EGroup group) const
{
    return WordOf(group);
}

bool CEffectsDisplayDlg::Select(EGroup group, int32_t index)
{
    if (index < 0 || index >= ChoiceCount(group))
        return false;
    return Change(WordOf(group), index);
}

bool CEffectsDisplayDlg::IsAmountEnabled() const
{
    return plugin.GetSettings().values.environment != 0;
}

int32_t CEffectsDisplayDlg::GetAmount() const
{
    return plugin.GetSettings().values.reverbAmount;
}

QVString CEffectsDisplayDlg::GetAmountText() const
{
    if (!IsAmountEnabled())
        return QVTranslated(NOT_APPLICABLE);
    return QVString::Format(u"%d", GetAmount());
}

bool CEffectsDisplayDlg::SetAmount(double value)
{
    if (!IsAmountEnabled() || std::isnan(value))
        return false;
    const double rounded = std::round(std::fmin(std::fmax(value, MIN_AMOUNT), MAX_AMOUNT));
    return Change(plugin.GetSettings().values.reverbAmount, static_cast<int32_t>(rounded));
}

bool CEffectsDisplayDlg::Change(int32_t& word, int32_t value)
{
    if (word == value)
        return false;
    word = value;
    lastSaveSucceeded = plugin.GetSettings().Save();
    plugin.GetEngine().Configure();
    if (plugin.host != nullptr)
        plugin.host->NotifyChanged(true);
    return true;
}
