// Gives a target every file of the directories and files named on the command line, once: the
// seeds as a test, in builds without a fuzzer.
#include "fuzz.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> files_of(int argc, char **argv) {
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        if (!fs::is_directory(argv[i]))
            files.emplace_back(argv[i]);
        else
            std::copy(fs::directory_iterator(argv[i]), {}, std::back_inserter(files));
    }
    std::sort(files.begin(), files.end());
    return files;
}

void replay(const fs::path &path) {
    printf("%s\n", path.c_str());
    fflush(stdout);
    std::ifstream file(path, std::ios::binary);
    MUST(file.good());
    const std::string bytes((std::istreambuf_iterator<char>(file)), {});
    fuzz::Exactly input(bytes);
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(input.data()), input.size());
}

} // namespace

int main(int argc, char **argv) {
    LLVMFuzzerInitialize(&argc, &argv);
    const std::vector<fs::path> files = files_of(argc, argv);
    for (const fs::path &path : files)
        replay(path);
    return files.empty() ? 1 : 0;
}
