// libFuzzer entry: the XML reader and writer.
#include "FuzzChecks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    qvfuzz::CheckXmlReader(qvfuzz::FuzzText(data, size));
    return 0;
}
