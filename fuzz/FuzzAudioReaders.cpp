// libFuzzer entry: arbitrary bytes through every container reader, seekable
// and not, strict and not: the header walk, then a read of every frame.
#include "AudioFuzzChecks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    qvfuzz::CheckAudioReaders(data, size);
    return 0;
}
