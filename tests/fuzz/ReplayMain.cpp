// Runs the fuzz target over every file of the folders given: what was once found stays fixed, without
// a fuzzer. Fails when a folder holds no file.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

// The name is libFuzzer's.
// NOLINTNEXTLINE(readability-identifier-naming)
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count);

int main(int argumentCount, char** arguments) {
    std::size_t fileCount = 0;
    for (int i = 1; i < argumentCount; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(arguments[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                   bytes.size());
            ++fileCount;
        }
    }
    std::printf("%zu files replayed\n", fileCount);
    return fileCount > 0 ? 0 : 1;
}
