// Runs a fuzz target's entry point over saved inputs: every regular file of
// the directories (or the files) named on the command line, in name order.
// Built in place of libFuzzer's own main, so the seeds are replayed by ctest
// in every build, the sanitizer builds and the target included.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv)
{
    namespace fs = std::filesystem;
    std::vector<fs::path> files;
    std::error_code ec;
    for (int i = 1; i < argc; ++i) {
        if (fs::is_regular_file(argv[i], ec))
            files.emplace_back(argv[i]);
        for (auto it = fs::recursive_directory_iterator(argv[i], ec); it != fs::end(it); it.increment(ec)) {
            if (it->path().filename().string().starts_with("."))
                it.disable_recursion_pending();  // hidden files and directories are not inputs
            else if (it->is_regular_file())
                files.push_back(it->path());
        }
    }
    if (files.empty()) {
        std::fprintf(stderr, "no inputs to replay\n");
        return 1;
    }
    std::sort(files.begin(), files.end());
    for (const auto& f : files) {
        std::ifstream in(f, std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("replayed %zu inputs\n", files.size());
    return 0;
}
