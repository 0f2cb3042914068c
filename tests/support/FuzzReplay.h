// Replays what a fuzz target keeps: its seeds (fuzz/corpus/<target>) and the
// inputs it once failed on (<regressions>/<target>, under the source folder),
// so that a fixed fault stays fixed in the ordinary test run.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace qvtest
{

// Runs `check` over every kept input of `target`; answers how many there
// were, or -1 when QVDSP_SOURCE_DIR does not name the source folder.
int ReplayKeptInputs(const std::string& target, const std::string& regressions,
                     const std::function<void(const std::vector<uint8_t>&)>& check);

}  // namespace qvtest
