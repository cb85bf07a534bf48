// Runs a fuzz target's entry point over saved inputs: every regular file of
// the directories (or the files) named on the command line, in name order.
// Built in place of libFuzzer's own main, so the seeds are replayed by ctest
// in every build, the sanitizer builds and the target included.
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void collect(const std::string& path, std::vector<std::string>& files)
{
    struct stat st{};
    if (stat(path.c_str(), &st) != 0)
        return;
    if (S_ISREG(st.st_mode)) {
        files.push_back(path);
        return;
    }
    if (!S_ISDIR(st.st_mode))
        return;
    DIR* dir = opendir(path.c_str());
    if (dir == nullptr)
        return;
    std::vector<std::string> names;
    while (const dirent* e = readdir(dir)) {
        if (e->d_name[0] != '.')
            names.emplace_back(e->d_name);
    }
    closedir(dir);
    std::sort(names.begin(), names.end());
    for (const auto& n : names)
        collect(path + "/" + n, files);
}

}  // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i)
        collect(argv[i], files);
    if (files.empty()) {
        std::fprintf(stderr, "no inputs to replay\n");
        return 1;
    }
    for (const auto& f : files) {
        std::ifstream in(f, std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("replayed %zu inputs\n", files.size());
    return 0;
}
