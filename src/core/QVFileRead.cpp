// The core library's whole-file reads, on the resource loader, so that a
// configuration may come from anywhere a name can point.
#include "audiofile/FileLoader.h"
#include "core/QVFileSystem.h"

bool QVFileSystem::ReadFileToBuffer(const QVString& name, std::vector<uint8_t>& buffer,
                                    int64_t maximumSize)
{
    CFileLoader loader;
    loader.maximumSize = maximumSize;
    return loader.Load(name, buffer);
}

bool QVFileSystem::ReadTextFile(const QVString& name, QVString& text, int64_t maximumSize)
{
    std::vector<uint8_t> bytes;
    text.Empty();
    if (!ReadFileToBuffer(name, bytes, maximumSize))
        return false;
    text = QVDecodeText(bytes.data(), bytes.size());
    return true;
}
