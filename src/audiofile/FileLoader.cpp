#include "audiofile/FileLoader.h"

#include "audiofile/FileStream.h"
#include "core/QVFileSystem.h"

#include <algorithm>

namespace
{
// Pieces of a local read; a cancel is seen between two of them.
constexpr int64_t kReadPiece = 1 << 20;
}  // namespace

CFileLoader::CFileLoader()
{
    SetHeaders(QVStringArray());
}

void CFileLoader::SetHeaders(const QVStringArray& lines)
{
    QVStringArray all = lines;
    all.Add(QVString(u"Accept-Encoding: gzip"));
    headerList.RemoveAll();
    for (int32_t i = 0; i < all.GetCount(); ++i)
    {
        if (!all[i].IsEmpty() && !headerList.Contains(all[i]))
            headerList.Add(all[i]);
    }
}

void CFileLoader::Cancel()
{
    // Local reads watch the flag between their pieces. A transfer of the host
    // would be told here as well; this build runs none.
    cancelled.store(true);
}

QVString CFileLoader::GetProgressTitle(const QVString& name) const
{
    if (!progressTitle.IsEmpty())
        return progressTitle;
    return QVFileSystem::IsURL(name) ? QVString(u"Internet resource") : QVString(u"Local resource");
}

bool CFileLoader::Load(const QVString& name, std::vector<uint8_t>& output, uint32_t options)
{
    if (cancelled.load())
        return false;
    if (busy.exchange(true))
        return false;
    bool done = false;
    output.clear();
    info.Clear();
    // No progress display exists without the host; showProgress asks for none.
    if ((allowInternet || (options & LOAD_FORCE_INTERNET) != 0) && QVFileSystem::IsURL(name))
        done = LoadTransfer(name, output);
    else
        done = LoadLocal(name, output);
    if (!done)
        output.clear();
    busy.store(false);
    return done;
}

bool CFileLoader::LoadTransfer(const QVString& /*name*/, std::vector<uint8_t>& /*output*/)
{
    // Internet names need the host's transfer object, which this build lacks.
    return false;
}

bool CFileLoader::LoadLocal(const QVString& name, std::vector<uint8_t>& output)
{
    if (name.IsEmpty())
        return false;
    CLocalFileStream file;
    if (!file.Open(QVFileSystem::GetLongPath(name).ToUTF8(), false))
        return false;
    int64_t size = file.GetSize();
    if (size < 0)
        return false;
    if (offset != 0)
    {
        const int64_t start = std::clamp<int64_t>(offset, 0, size);
        size -= start;
        if (!file.Seek(start, IQVFileStream::SEEK_FROM_START))
            return false;
    }
    if (maximumSize >= 1 && size > maximumSize)
        size = maximumSize;
    output.resize(static_cast<size_t>(size));
    for (int64_t done = 0; done < size;)
    {
        if (cancelled.load())
            return false;
        const int64_t piece = std::min(kReadPiece, size - done);
        if (file.Read(output.data() + done, piece) != piece)
            return false;
        done += piece;
    }
    return true;
}
