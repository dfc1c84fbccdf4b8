// Runs a fuzz target over saved inputs without libFuzzer, so that the normal build replays each
// corpus and every input that once failed as a test.
//   <target> <file or folder>...   a folder is read recursively; a missing one is skipped
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char* argv[])
{
    namespace fs = std::filesystem;
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        if (fs::is_regular_file(argv[i])) inputs.emplace_back(argv[i]);
        if (fs::is_directory(argv[i]))
            for (const fs::directory_entry& entry : fs::recursive_directory_iterator(argv[i]))
                if (entry.is_regular_file()) inputs.push_back(entry.path());
    }
    std::sort(inputs.begin(), inputs.end()); // the same order everywhere, so that a failure repeats
    for (const fs::path& path : inputs) {
        std::ifstream file(path, std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        std::printf("replaying %s\n", path.c_str()); // a crash leaves the culprit as the last line
        std::fflush(stdout);
        if (!file) return 1;
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("replayed %zu inputs\n", inputs.size());
    return inputs.empty() ? 1 : 0;
}
