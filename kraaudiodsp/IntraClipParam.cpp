#include "kraaudiodsp/IntraClipParam.h"

#include <mutex>

namespace dsp::intraclip {
namespace {

std::mutex mutex;
IntraClipParam global;

}  // namespace

void GetGlobalParam(IntraClipParam& param) {
    const std::lock_guard lock(mutex);
    param = global;
}

void SetGlobalParam(const IntraClipParam& param) {
    const std::lock_guard lock(mutex);
    global = param;
}

}  // namespace dsp::intraclip
