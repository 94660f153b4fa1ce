// Runs a fuzz target over the files of a folder, with any compiler: replay FOLDER
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv)
{
    if (argc != 2 || std::freopen("/dev/null", "w", stdout) == nullptr) {
        return 2;
    }
    int count = 0;
    for (const auto& file : std::filesystem::directory_iterator(argv[1])) {
        std::ifstream stream(file.path(), std::ios::binary);
        std::vector<char> input{std::istreambuf_iterator<char>(stream), {}};
        input.shrink_to_fit();  // reading past the end shows
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
        ++count;
    }
    return count > 0 ? 0 : 1;
}
