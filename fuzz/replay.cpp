// Feeds a fuzzer the files of a corpus, one by one, in a build without a fuzzing engine. So every run of the tests repeats inputs
// that once broke something.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    std::size_t files = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator{argv[i]}) {
            std::ifstream in{entry.path(), std::ios::binary};
            const std::vector<char> bytes{std::istreambuf_iterator<char>{in}, {}};
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
            ++files;
        }
    }
    std::printf("%zu files\n", files);
    return files > 0 ? 0 : 1;
}
