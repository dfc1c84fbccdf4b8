// Runs a fuzz target over saved inputs without libFuzzer, so that the normal build replays each
// corpus and every input that once failed as a test.
//   <target> <file or folder>...   a folder is read recursively; a missing one is skipped
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fs = std::filesystem;

int main(int argc, char* argv[])
{
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        const fs::path path(argv[i]);
        if (fs::is_directory(path)) {
            for (const fs::directory_entry& entry : fs::recursive_directory_iterator(path))
                if (entry.is_regular_file() && entry.path().filename().string().front() != '.')
                    inputs.push_back(entry.path());
        } else if (fs::is_regular_file(path)) {
            inputs.push_back(path);
        } else {
            std::printf("no inputs at %s\n", argv[i]);
        }
    }
    // The same order on every machine, so that a failure repeats.
    std::sort(inputs.begin(), inputs.end());
    if (inputs.empty()) {
        std::fprintf(stderr, "nothing to replay\n");
        return 1;
    }

    for (const fs::path& path : inputs) {
        std::ifstream file(path, std::ios::binary);
        if (!file) {
            std::fprintf(stderr, "cannot read %s\n", path.c_str());
            return 1;
        }
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        // Named before it runs: a crash leaves the culprit as the last line.
        std::printf("replaying %s\n", path.c_str());
        std::fflush(stdout);
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("replayed %zu inputs\n", inputs.size());
    return 0;
}
