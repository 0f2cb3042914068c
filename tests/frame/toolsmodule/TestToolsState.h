// What the test tools module records of how the DSP module treats it; the
// tests read it through the module's exported state.
#pragma once

struct QVTestToolsState
{
    int entryCalls;
    int entryVersion;
    int attachCalls;
    void* loaderValue;
    void* moduleHandle;
    int productLoads;
    char productModuleName[256];
    int keysOpened;
    int playerAttaches;
    void* playerLoaderValue;
    int readerStarts;
    int discStarts;
    void* readerLoaderValue;
    // Set by the test before it unloads: the end calls count here, since this
    // module's own memory goes with it.
    int* endCounts;
};
