// The interface between a host and the plug-ins of this module. The order of the
// virtual operations of every class here is a contract with the host: places the
// module does not use are kept as reserved operations so that the later ones stay
// where the host expects them.
#pragma once

#include <cstdint>

#include "qvdsp/AudioFormat.h"

#if defined(__GNUC__)
#define QVDSP_EXPORT __attribute__((visibility("default")))
#else
#define QVDSP_EXPORT
#endif

// Zone number that stands for no zone: the global branch of the store.
inline constexpr int32_t DSP_ZONE_GLOBAL = -10000;

// Kinds of IQVDSP::Command; the integers are part of the interface.
enum CommandKind : int32_t
{
    DSPCMD_OPEN_PANEL = 1,
    DSPCMD_CLOSE_PANEL = 2,
    DSPCMD_SET_STATE = 3,
    DSPCMD_RELOAD = 4,
    DSPCMD_QUERY_FLAG = 5,
    DSPCMD_TEMPO = 6,
    DSPCMD_GET_LATENCY = 7,
    DSPCMD_DESCRIBE = 8,
    DSPCMD_RELOAD_TEMPO = 9,
    DSPCMD_SET_ANALYZER_SILENCE = 10,
};

// Sub-modes of DSPCMD_TEMPO, passed by value in `out`.
enum TempoMode : int32_t
{
    DSPTEMPO_READ = 0,
    DSPTEMPO_SET = 1,
    DSPTEMPO_ADD = 2,
    DSPTEMPO_RESTORE = 3,
};

// Kinds of IQVDSP::GetInfo.
enum InfoKind : int32_t
{
    DSPINFO_NAME = 0,
    DSPINFO_INTERFACE_VERSION = 2,
};
// Characters the caller of GetInfo provides at least.
inline constexpr int32_t DSPINFO_TEXT_CAPACITY = 1024;

// Kinds of IQVDSP::SetOption.
enum OptionKind : int32_t
{
    DSPOPT_TRANSIENT = 3,
};

// The stage behind a plug-in; implemented by the host. The buffer given to
// Output stays the caller's: a sink finishes with it, or copies it, before it
// returns, and may change it in place meanwhile.
class IQVDSPSink
{
public:
    virtual void ReservedSink1() {}  // the host's own; never called here
    virtual void Output(double* samples, int32_t frames) = 0;
    // Gain factor the host wants applied to a test signal a stage makes itself.
    virtual double GetTestLevel() { return 1.0; }

protected:
    ~IQVDSPSink() = default;
};

// Adaptive volume mode kept by the host's level control.
class IQVDSPLevelControl
{
public:
    virtual void ReservedLevelControl1() {}
    virtual void ReservedLevelControl2() {}
    virtual void ReservedLevelControl3() {}
    virtual void ReservedLevelControl4() {}
    virtual void ReservedLevelControl5() {}
    virtual void ReservedLevelControl6() {}
    virtual void ReservedLevelControl7() {}
    virtual int32_t GetAdaptiveMode() = 0;           // operation 8
    virtual void SetAdaptiveMode(int32_t mode) = 0;  // operation 9

protected:
    ~IQVDSPLevelControl() = default;
};

// The host's player object.
class IQVDSPPlayer
{
public:
    virtual void ReservedPlayer1() {}
    virtual void ReservedPlayer2() {}
    virtual void ReservedPlayer3() {}
    virtual void ReservedPlayer4() {}
    virtual void ReservedPlayer5() {}
    virtual void ReservedPlayer6() {}
    virtual IQVDSPLevelControl* GetLevelControl() = 0;  // operation 7

protected:
    ~IQVDSPPlayer() = default;
};

// The host object every plug-in keeps; not owned by the plug-in.
class IQVDSPHost
{
public:
    // A plug-in's settings changed (always called with true).
    virtual void NotifyChanged(bool changed) = 0;
    virtual void ReservedHost2() {}
    // The tempo of Tempo & Pitch changed through a command; no rebuild needed.
    virtual void NotifyTempoChanged() = 0;
    virtual IQVDSPPlayer* GetPlayer() = 0;

protected:
    ~IQVDSPHost() = default;
};

// Collector the host passes with DSPCMD_DESCRIBE.
class IStatusList
{
public:
    virtual void ReservedStatusList1() {}
    virtual void ReservedStatusList2() {}
    virtual void ReservedStatusList3() {}
    virtual void Add(const char16_t* text, int32_t flags) = 0;  // operation 4

protected:
    ~IStatusList() = default;
};

// One plug-in. Sample blocks are interleaved doubles, the sample of channel c in
// frame f at f * channels + c; counts are frames.
class IQVDSP
{
public:
    virtual ~IQVDSP() = default;
    virtual int32_t Process(double* samples, int32_t frames, IQVDSPSink* sink) = 0;
    virtual int32_t Flush() = 0;
    // 0, or -1 when the plug-in cannot run on this format (it then passes blocks on).
    virtual int32_t SetFormat(const CAudioFormat& format) = 0;
    // `text` has room for DSPINFO_TEXT_CAPACITY characters.
    virtual int32_t GetInfo(int32_t kind, char16_t* text) = 0;
    virtual int32_t SetOption(int32_t kind) = 0;
    virtual int64_t Command(int32_t kind, void* arg, uint64_t* out) = 0;
};

// The two exports of the module. The caller owns the plug-in and destroys it
// through the virtual destructor.
extern "C" QVDSP_EXPORT IQVDSP* GetDSPPlugin(int32_t index, IQVDSPHost* host, int32_t zone);
extern "C" QVDSP_EXPORT int32_t DllRegisterServer();

using GetDSPPluginFunction = IQVDSP* (*)(int32_t, IQVDSPHost*, int32_t);
using DllRegisterServerFunction = int32_t (*)();
