// The Parametric Equalizer: a user-made list of small filters, run in list
// order over every block, saved as the list text under "Filters". Two
// instances exist, with separate lists and settings.
#pragma once

#include <memory>
#include <mutex>

#include "frame/QVDSPBase.h"
#include "parametric/ParametricFilter.h"

class CParametricEqualizerDlg;

// The filters of one plug-in and the lock that guards them and every filter
// in them. Recursive: applying an edit saves, and saving takes it again.
class CParametricFilterList
{
public:
    CParametricFilterList(int32_t zone, int32_t instance);
    ~CParametricFilterList();

    // "Parametric Equalizer" or "Parametric Equalizer 2".
    QVString GetPluginName() const;

    // Load and save "Filters" through the zone's settings; an empty or missing
    // value gives an empty list.
    void Load();
    // False when the store refused the value.
    bool Save();
    QVString SaveText();
    void LoadText(const QVString& text);

    // List edits, under the lock; rows are clamped to the list's ends.
    int32_t Insert(int32_t row, std::unique_ptr<CParametricFilter> filter);
    bool Remove(int32_t row);
    bool Move(int32_t from, int32_t to);
    int32_t GetCount();
    CParametricFilter* GetAt(int32_t row);

    std::recursive_mutex lock;
    int32_t zone;
    int32_t instance;  // 0 or 1
    ParametricFilterArray filters;
};

class CParametricEqualizerDSPPlugin : public QVDSPBase
{
public:
    CParametricEqualizerDSPPlugin(IQVDSPHost* host, int32_t zone, int32_t instance);
    ~CParametricEqualizerDSPPlugin() override;

    int32_t Flush() override;
    int32_t SetFormat(const CAudioFormat& newFormat) override;
    int64_t Command(int32_t kind, void* arg, uint64_t* out) override;
    int32_t ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink) override;
    QVString GetName() override;

    CParametricFilterList& GetFilterList() { return filterList; }
    const CAudioFormat& GetFormat() const { return format; }
    CParametricEqualizerDlg* GetPanel() const { return panel.get(); }

private:
    CAudioFormat format;
    CParametricFilterList filterList;
    UserChannelBuffer userChannels;
    std::unique_ptr<CParametricEqualizerDlg> panel;
};
