#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

// Handles every file of a folder, in the order of their names.

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    LLVMFuzzerInitialize(&argc, &argv);
    const std::filesystem::directory_iterator folder(argc == 2 ? argv[1] : "");
    std::vector<std::filesystem::path> paths(begin(folder), end(folder));
    std::sort(paths.begin(), paths.end());
    for (const std::filesystem::path& path : paths) {
        std::printf("%s\n", path.filename().c_str());
        std::fflush(stdout);
        std::ifstream file(path, std::ios::binary);
        const std::string bytes(std::istreambuf_iterator<char>(file), {});
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    return paths.empty() ? 1 : 0;
}
