// CFileLoader: the whole of a named resource in a byte buffer. This build has
// no host transfer object, so it loads local files only; a name with "://"
// fails cleanly. A load can be cancelled from another thread, and a second
// load while one runs is refused.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "core/QVPropertyMap.h"
#include "core/QVString.h"
#include "core/QVStringArray.h"

// The callback through which a progress display cancels a load.
class IQVCancelCallback
{
public:
    virtual void Cancel() = 0;
    virtual bool IsCancelled() const = 0;

protected:
    ~IQVCancelCallback() = default;
};

class CFileLoader : public IQVCancelCallback
{
public:
    // Options of Load.
    static constexpr uint32_t LOAD_FORCE_INTERNET = 1;  // try the transfer path even if not allowed
    static constexpr uint32_t LOAD_WANT_HEADERS = 2;    // ask for the response headers

    CFileLoader();
    virtual ~CFileLoader() = default;
    CFileLoader(const CFileLoader&) = delete;
    CFileLoader& operator=(const CFileLoader&) = delete;

    // Request header lines: "Accept-Encoding: gzip" is always among them,
    // empty lines are dropped and of repeated lines the first is kept.
    void SetHeaders(const QVStringArray& lines);
    const QVStringArray& GetHeaders() const { return headerList; }

    // Fills `output` with the resource; false, with `output` empty, on any
    // failure, on a cancel, or when a load is already running.
    bool Load(const QVString& name, std::vector<uint8_t>& output, uint32_t options = 0);

    // From any thread: the running load stops, and later loads refuse.
    void Cancel() override;
    bool IsCancelled() const override { return cancelled.load(); }
    bool IsBusy() const { return busy.load(); }

    // The title a progress display would show for this name.
    QVString GetProgressTitle(const QVString& name) const;

    int64_t offset = 0;
    int64_t maximumSize = -1;  // -1: no limit
    bool showProgress = false;
    int32_t progressDelay = 4000;
    bool progressCancel = true;
    QVString progressTitle;
    QVString progressText = u"Working...";
    bool allowInternet = true;
    int32_t timeoutMilliseconds = 20000;
    // Results of the last transfer ("StatusCode", "Last-Modified", "AllHeaders").
    QVPropertyMap info;

protected:
    // Reads a local file in pieces, so that a cancel is seen between them.
    virtual bool LoadLocal(const QVString& name, std::vector<uint8_t>& output);
    // The host's transfer object; a build without the host has none.
    virtual bool LoadTransfer(const QVString& name, std::vector<uint8_t>& output);

private:
    QVStringArray headerList;
    std::atomic<bool> cancelled{false};
    std::atomic<bool> busy{false};
};
