#pragma once

#include <cstdint>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include "kracore/Export.h"
#include "kracore/RefCounted.h"
#include "kracore/WStr.h"

namespace zuc {

/// Where an offline effect reads its source; the host implements it.
class ZUC_API OfflineIInterface : public virtual kracore::utility::RefCountedObject {
public:
    ~OfflineIInterface() override;
    virtual long GetChannelCount() const = 0;  // [worker]
    /// Fills `destination` (channels x frames) with source audio from frame `position` on. False is a read
    /// error, a short read included; the destination is then undefined. [worker]
    virtual bool GetAudio(float** destination,
                          long channels,
                          std::int64_t position,
                          long frames) = 0;
};

/// Where an offline effect puts its output.
class ZUC_API OfflineOInterface : public virtual kracore::utility::RefCountedObject {
public:
    ~OfflineOInterface() override;
    virtual long GetChannelCount() const = 0;  // [any]
    /// Whether more may still come (true) or the stream is complete (false). [worker]
    virtual void SetOpenToWrite(bool open) = 0;
    /// Discards what is buffered. [any, may block]
    virtual void Flush() = 0;
    /// Takes frames `offset` to `offset + frames` of each source channel; returns how many it took, 0 when
    /// there was no room: try again with the same data. The second argument is ignored. [worker]
    virtual long PutAudio(const float* const* source, long, std::int64_t offset, long frames) = 0;
};

/// What an effect that sees its whole source offers besides AudioFilter. The host sets reader and writer,
/// calls OfflineRun, then drains the writer until it is closed and empty and OfflineProcessFinished.
class ZUC_API OfflineOperations {
public:
    virtual ~OfflineOperations();

    /// Ends a run early. Default: nothing. [any]
    virtual void Cancel();
    /// A message to show after the run; empty by default. [host]
    virtual void GetCompletionText(kracore::WStr& text) const;
    /// Starts the work on source frames `start` to `end` and returns; false when it cannot. Default: true,
    /// nothing done. [host]
    virtual bool OfflineRun(std::int64_t start, std::int64_t end);
    virtual void SetOfflineReader(
        boost::intrusive_ptr<OfflineIInterface> reader);  // [host]; ignored
    virtual void SetOfflineWriter(
        boost::intrusive_ptr<OfflineOInterface> writer);  // [host]; ignored
    /// Where the run writes its progress in percent; read by the host meanwhile. [host]; ignored
    virtual void SetProgressHandler(float volatile* progressPercent);
    virtual bool WantsToHandleProgress() const;  // [host]; false
};

}  // namespace zuc
