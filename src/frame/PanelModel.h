// Panels are kept as window-less models: the rules, texts and ranges a panel
// would show, driven by tests and the command-line host the way a panel would.
// Without a window toolkit DSPCMD_OPEN_PANEL still makes (or reuses) the model,
// but answers -1 since there is no native window to hand back.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <utility>
#include <vector>

#include "core/QVString.h"

class QVPanelModel
{
public:
    virtual ~QVPanelModel() = default;
    // Called once when the panel is opened, to read what it shows.
    virtual void Open() {}
    // Called before the panel is destroyed.
    virtual void Close() {}
};

// A panel that shows only text: its paragraphs, each translated by itself.
class QVTextPanelModel : public QVPanelModel
{
public:
    explicit QVTextPanelModel(std::initializer_list<const char16_t*> paragraphs);
    QVString GetText() const;

private:
    std::vector<const char16_t*> paragraphs;
};

// The DSPCMD_OPEN_PANEL pattern: a second open reuses the panel.
template <typename Panel, typename... Args>
int64_t OpenPanelModel(std::unique_ptr<Panel>& panel, Args&&... args)
{
    if (!panel)
    {
        panel = std::make_unique<Panel>(std::forward<Args>(args)...);
        panel->Open();
    }
    return -1;
}

// DSPCMD_CLOSE_PANEL, and the first step of every plug-in's destructor.
template <typename Panel>
int64_t ClosePanelModel(std::unique_ptr<Panel>& panel)
{
    if (panel)
    {
        panel->Close();
        panel.reset();
    }
    return 0;
}
