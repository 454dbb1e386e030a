#include "kracore/WStr.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <string_view>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "kracore/RefCounted.h"

namespace kracore::utility {
namespace {

constexpr std::string_view kBad = "\xEF\xBF\xBD";  // U+FFFD

TEST(WStr, Utf8) {
    const struct {
        std::string_view utf8;
        std::u16string_view utf16;
    } rows[] = {
        {"", u""},
        {std::string_view("a\0b", 3), std::u16string_view(u"a\0b", 3)},
        {"\x7F\xC2\x80\xDF\xBF", u"\u007F\u0080\u07FF"},
        {"\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", u"\u0800\uD7FF\uE000\uFFFF"},
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", u"\U00010000\U0010FFFF"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(FromUtf8(row.utf8), row.utf16) << row.utf8;
        EXPECT_EQ(ToUtf8(row.utf16), row.utf8);
    }
}

TEST(WStr, InvalidUtf8) {
    const struct {
        std::string_view utf8;
        std::u16string_view utf16;
    } rows[] = {
        {"\x80z", u"\uFFFDz"},                              // continuation without a start
        {"\xC3", u"\uFFFD"},                                // ends within a sequence
        {"\xE2\x82", u"\uFFFD\uFFFD"},                      //
        {"\xE2\x82z", u"\uFFFD\uFFFDz"},                    // breaks off
        {"\xE2\xC3\xA9", u"\uFFFD\u00E9"},                  // the next sequence counts whole
        {"\xC0\xAF\xC1\xBF", u"\uFFFD\uFFFD\uFFFD\uFFFD"},  // longer than needed
        {"\xE0\x9F\xBF", u"\uFFFD\uFFFD\uFFFD"},            //
        {"\xF0\x8F\xBF\xBF", u"\uFFFD\uFFFD\uFFFD\uFFFD"},  //
        {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},            // a surrogate
        {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},  // beyond U+10FFFF
        {"a\xFE\xFF\xF8z", u"a\uFFFD\uFFFD\uFFFDz"},        // bytes of no sequence
    };
    for (const auto& row : rows) EXPECT_EQ(FromUtf8(row.utf8), row.utf16) << row.utf8;
}

TEST(WStr, UnpairedSurrogates) {
    const char16_t high = 0xD83D, low = 0xDE00;
    const std::string bad(kBad);
    const struct {
        WStr utf16;
        std::string utf8;
    } rows[] = {
        {{high, low}, "\xF0\x9F\x98\x80"},
        {{high}, bad},
        {{low}, bad},
        {{low, high}, bad + bad},
        {{high, u'z'}, bad + "z"},
        {{high, high, low}, bad + "\xF0\x9F\x98\x80"},
    };
    for (const auto& row : rows) EXPECT_EQ(ToUtf8(row.utf16), row.utf8) << row.utf8;
}

TEST(WStr, BlocksAreSharedByThreads) {
    constexpr std::size_t kThreads = 4, kTexts = 3000;
    std::vector<std::vector<WStr>> texts(kThreads, std::vector<WStr>(kTexts));
    const auto length = [](std::size_t i) {
        return i * 37 % 700;
    };  // both sides of the pool's limit
    const auto onAllThreads = [](const auto& work) {
        std::vector<std::thread> threads;
        for (std::size_t t = 0; t < kThreads; ++t) threads.emplace_back(work, t);
        for (std::thread& thread : threads) thread.join();
    };
    // Each round gives back what another thread took, and some threads are gone by then.
    for (std::size_t round = 0; round < 3; ++round)
        onAllThreads([&](std::size_t t) {
            std::vector<WStr>& mine = texts[(t + round) % kThreads];
            for (std::size_t i = 0; i < kTexts; ++i)
                mine[i] = WStr(length(i + round), static_cast<char16_t>(i));
        });
    for (const auto& row : texts)
        for (std::size_t i = 0; i < kTexts; ++i)
            ASSERT_EQ(row[i], WStr(length(i + 2), static_cast<char16_t>(i)));
}

TEST(SmallBlockAllocator, AlignsAndRefusesAbsurdSizes) {
    for (const std::size_t bytes : {0, 1, 7, 8, 17, 24, 40, 100, 512, 513, 100'000}) {
        std::array<void*, 8> blocks{};  // neighbours, of which not every one is aligned by chance
        for (void*& block : blocks) block = SmallBlockAllocator::Allocate(bytes);
        for (void* const block : blocks) {
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % alignof(std::max_align_t), 0u)
                << bytes;
            SmallBlockAllocator::Free(block, bytes);
        }
    }
    SmallBlockAllocator::STLAllocator<double> allocator;
    EXPECT_THROW(allocator.allocate(std::numeric_limits<std::size_t>::max() / 4), std::bad_alloc);
}

class Counted : public virtual RefCountedObject {
public:
    explicit Counted(int& deleted) : deleted_(deleted) {}
    ~Counted() override { ++deleted_; }

private:
    int& deleted_;
};

TEST(RefCounted, LastReferenceDeletesOnce) {
    int deleted = 0;
    auto* const object = new Counted(deleted);
    object->AddRef();
    const Counted copy =
        *object;  // starts without references; its own destructor is none of Release
    std::array<std::thread, 4> threads;
    for (std::thread& thread : threads)
        thread = std::thread([object] {
            for (int i = 0; i < 10'000; ++i) object->AddRef();
            for (int i = 0; i < 10'000; ++i) object->Release();
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(deleted, 0);
    object->Release();
    EXPECT_EQ(deleted, 1);
}

}  // namespace
}  // namespace kracore::utility
