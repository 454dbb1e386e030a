#include "kraaudiodsp/IntraClipParam.h"

#include <array>
#include <atomic>
#include <bit>
#include <cstdint>
#include <mutex>

namespace dsp::intraclip {
namespace {

using Words = std::array<std::uint32_t, sizeof(IntraClipParam) / sizeof(std::uint32_t)>;
static_assert(sizeof(Words) == sizeof(IntraClipParam));

/// The record with a counter that is odd while it is being written: a reader that sees the same even count
/// before and after has a whole record (H. Boehm, Can Seqlocks Get Along with Programming Language Memory
/// Models?, MSPC 2012).
class Record {
public:
    Record() { Write({}); }

    void Write(const IntraClipParam& param) {
        const Words words = std::bit_cast<Words>(param);
        const unsigned count = count_.load(std::memory_order_relaxed);
        count_.store(count + 1, std::memory_order_relaxed);
        std::atomic_thread_fence(std::memory_order_release);
        for (std::size_t i = 0; i < words.size(); ++i)
            words_[i].store(words[i], std::memory_order_relaxed);
        count_.store(count + 2, std::memory_order_release);
    }

    bool TryRead(IntraClipParam& param) const {
        const unsigned before = count_.load(std::memory_order_acquire);
        Words words{};
        for (std::size_t i = 0; i < words.size(); ++i)
            words[i] = words_[i].load(std::memory_order_relaxed);
        std::atomic_thread_fence(std::memory_order_acquire);
        if (before % 2 != 0 || count_.load(std::memory_order_relaxed) != before) return false;
        param = std::bit_cast<IntraClipParam>(words);
        return true;
    }

private:
    std::atomic<unsigned> count_{0};
    std::array<std::atomic<std::uint32_t>, std::tuple_size_v<Words>> words_{};
};

std::mutex mutex;  // of those who may wait
Record global;

}  // namespace

void GetGlobalParam(IntraClipParam& param) {
    const std::lock_guard lock(mutex);
    global.TryRead(param);
}

void SetGlobalParam(const IntraClipParam& param) {
    const std::lock_guard lock(mutex);
    global.Write(param);
}

bool TryGetGlobalParam(IntraClipParam& param) { return global.TryRead(param); }

}  // namespace dsp::intraclip
