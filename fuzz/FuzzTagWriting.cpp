// libFuzzer entry: arbitrary bytes opened as a WAV and an AIFF file in
// memory, a field set and the tags saved.
#include "TagFuzzChecks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    qvfuzz::CheckTagWriting(data, size);
    return 0;
}
