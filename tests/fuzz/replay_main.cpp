// Runs a fuzz target without libFuzzer: every file named on the command line, or found in a folder
// named there, is handed to LLVMFuzzerTestOneInput once. A crash or a sanitizer report fails the
// test that runs it; an input that merely gets rejected passes.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

bool runFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", path.c_str());
        return false;
    }
    const std::vector<char> bytes(
        (std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    int inputs = 0;
    bool ok = true;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path path(argv[i]);
        if (std::filesystem::is_directory(path)) {
            for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
                if (entry.is_regular_file()) {
                    ok = runFile(entry.path()) && ok;
                    ++inputs;
                }
            }
        } else {
            ok = runFile(path) && ok;
            ++inputs;
        }
    }
    if (inputs == 0) {
        std::fprintf(stderr, "no inputs\n");
        return 1;
    }
    std::printf("%d inputs replayed\n", inputs);
    return ok ? 0 : 1;
}
