// Replays fuzz inputs through a fuzz target's entry points without libFuzzer, so that every test
// build (Release, and the sanitizer build) runs the regression inputs and the seed corpus. The
// arguments are files or directories of files; the target's own oracle traps on a fault.
#ifdef QUARN_FUZZ_REPLAY

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    std::vector<std::filesystem::path> inputs;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path path(argv[i]);
        if (!std::filesystem::is_directory(path)) {
            inputs.push_back(path);
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(path))
            if (entry.is_regular_file()) inputs.push_back(entry.path());
    }
    std::sort(inputs.begin(), inputs.end());
    if (inputs.empty()) {
        std::fputs("replay: no inputs\n", stderr);
        return 1;
    }
    if (LLVMFuzzerInitialize(&argc, &argv)) return 1;
    for (const auto& path : inputs) {
        std::ifstream in(path, std::ios::binary);
        const std::string data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        std::fprintf(stderr, "replay: %s\n", path.c_str());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(data.data()), data.size());
    }
    std::fprintf(stderr, "replay: %zu inputs, no fault\n", inputs.size());
    return 0;
}

#endif  // QUARN_FUZZ_REPLAY
