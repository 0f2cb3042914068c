#include "parametric/ParametricEqualizerPlugin.h"

#include "parametric/EqualizingFilters.h"

#include <algorithm>

#include "frame/PanelModel.h"
#include "frame/SettingsKey.h"
#include "parametric/ParametricEqualizerDlg.h"

namespace
{
constexpr char16_t FILTERS_VALUE[] = u"Filters";
}

// ---------------------------------------------------------------------------
// The list

CParametricFilterList::CParametricFilterList(int32_t zoneNumber, int32_t instanceNumber)
    : zone(zoneNumber), instance(instanceNumber)
{
}

CParametricFilterList::~CParametricFilterList() = default;

QVString CParametricFilterList::GetPluginName() const
{
    return QVString(instance == 1 ? u"Parametric Equalizer 2" : u"Parametric Equalizer");
}

void CParametricFilterList::Load()
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    filters.clear();
    const QVString name = GetPluginName();
    CZoneSettingsKey key(zone, name, QVString(u"Plugins\\DSP\\") + name, QVString());
    QVString text;
    key.ReadString(text, QVString(FILTERS_VALUE), QVString());
    LoadParametricFilterList(text, filters);
}

bool CParametricFilterList::Save()
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    CSettingsTransaction transaction;
    const QVString name = GetPluginName();
    CZoneSettingsKey key(zone, name, QVString(u"Plugins\\DSP\\") + name, QVString());
    const bool written =
        key.WriteString(QVString(FILTERS_VALUE), SaveParametricFilterList(filters));
    return transaction.Commit() && written;
}

QVString CParametricFilterList::SaveText()
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    return SaveParametricFilterList(filters);
}

void CParametricFilterList::LoadText(const QVString& text)
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    LoadParametricFilterList(text, filters);
}

int32_t CParametricFilterList::Insert(int32_t row, std::unique_ptr<CParametricFilter> filter)
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    const int32_t at = std::clamp(row, 0, static_cast<int32_t>(filters.size()));
    filters.insert(filters.begin() + at, std::move(filter));
    return at;
}

bool CParametricFilterList::Remove(int32_t row)
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    if (row < 0 || row >= static_cast<int32_t>(filters.size()))
        return false;
    filters.erase(filters.begin() + row);
    return true;
}

bool CParametricFilterList::Move(int32_t from, int32_t to)
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    const int32_t count = static_cast<int32_t>(filters.size());
    if (from < 0 || from >= count)
        return false;
    to = std::clamp(to, 0, count - 1);
    std::unique_ptr<CParametricFilter> filter = std::move(filters[static_cast<size_t>(from)]);
    filters.erase(filters.begin() + from);
    filters.insert(filters.begin() + to, std::move(filter));
    return true;
}

int32_t CParametricFilterList::GetCount()
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    return static_cast<int32_t>(filters.size());
}

CParametricFilter* CParametricFilterList::GetAt(int32_t row)
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    if (row < 0 || row >= static_cast<int32_t>(filters.size()))
        return nullptr;
    return filters[static_cast<size_t>(row)].get();
}

// ---------------------------------------------------------------------------
// The plug-in

CParametricEqualizerDSPPlugin::CParametricEqualizerDSPPlugin(IQVDSPHost* pluginHost,
                                                             int32_t pluginZone, int32_t instance)
    : QVDSPBase(pluginHost, pluginZone), filterList(pluginZone, instance)
{
    filterList.Load();
}

CParametricEqualizerDSPPlugin::~CParametricEqualizerDSPPlugin()
{
    ClosePanelModel(panel);
}

int32_t CParametricEqualizerDSPPlugin::Flush()
{
    // No filter state is reset when the host flushes.
    return 0;
}

int32_t CParametricEqualizerDSPPlugin::SetFormat(const CAudioFormat& newFormat)
{
    // Filters aren't told: each makes of the new format what it does at its
    // next block.
    std::lock_guard<std::recursive_mutex> guard(filterList.lock);
    StoreFormat(format, newFormat);
    return 0;
}

int64_t CParametricEqualizerDSPPlugin::Command(int32_t kind, void* arg, uint64_t*)
{
    switch (kind)
    {
    case DSPCMD_OPEN_PANEL: return OpenPanelModel(panel, *this);
    case DSPCMD_CLOSE_PANEL: return ClosePanelModel(panel);
    case DSPCMD_QUERY_FLAG: return 1;
    case DSPCMD_DESCRIBE:
    {
        auto* list = static_cast<IStatusList*>(arg);
        if (list == nullptr)
            return 0;
        std::lock_guard<std::recursive_mutex> guard(filterList.lock);
        for (const auto& filter : filterList.filters)
        {
            if (filter->IsEnabled())
                list->Add(filter->GetDescription().c_str(), 0);
        }
        return 0;
    }
    default: return -1;
    }
}

int32_t CParametricEqualizerDSPPlugin::ProcessBlock(double* samples, int32_t frames,
                                                    IQVDSPSink* sink)
{
    {
        std::lock_guard<std::recursive_mutex> guard(filterList.lock);
        const auto* filters = filterList.filters.data();
        const auto count = static_cast<int32_t>(filterList.filters.size());
        for (int32_t done = 0; done < count;)
            done += CParametricIIRFilter::ProcessRun(filters + done, count - done, samples, frames,
                                                     &format, &userChannels);
    }
    // Outside the lock, so that a panel edit never waits for the next stage.
    if (sink != nullptr)
        sink->Output(samples, frames);
    return 0;
}

QVString CParametricEqualizerDSPPlugin::GetName()
{
    return filterList.GetPluginName();
}
