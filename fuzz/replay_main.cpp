// Replays fuzz inputs without libFuzzer: feeds every regular file of the directories (or the
// files) named on the command line to LLVMFuzzerTestOneInput, in name order. Built with the
// ordinary compiler so that CTest checks the committed corpus on every platform; the target
// aborts on a violation, which fails the run.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s DIR_OR_FILE...\n", argv[0]);
        return 2;
    }
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        const fs::path path(argv[i]);
        std::error_code error;
        if (fs::is_directory(path, error)) {
            for (const fs::directory_entry& entry : fs::directory_iterator(path, error)) {
                if (entry.is_regular_file()) files.push_back(entry.path());
            }
        } else if (fs::is_regular_file(path, error)) {
            files.push_back(path);
        }
        if (error) {
            std::fprintf(stderr, "cannot read %s: %s\n", argv[i], error.message().c_str());
            return 2;
        }
    }
    if (files.empty()) {
        std::fprintf(stderr, "no inputs found\n");
        return 2;
    }
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files) {
        std::ifstream in(file, std::ios::binary);
        const std::vector<uint8_t> data((std::istreambuf_iterator<char>(in)),
                                        std::istreambuf_iterator<char>());
        if (!in.eof() && in.fail()) {
            std::fprintf(stderr, "cannot read %s\n", file.string().c_str());
            return 2;
        }
        LLVMFuzzerTestOneInput(data.data(), data.size());
    }
    std::cout << "replayed " << files.size() << " inputs\n";
    return 0;
}
