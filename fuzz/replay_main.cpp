/*
 * main() of a fuzz target built without libFuzzer: runs every file named on
 * the command line, or found in a named directory, through the target once.
 * ctest runs the committed corpora this way in every build, so the
 * regression seeds also meet the sanitizer builds and the ARM target.
 */
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

bool isDirectory(const std::string& path)
{
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::vector<std::string> filesOf(const std::string& dir)
{
    std::vector<std::string> files;
    if (DIR* d = ::opendir(dir.c_str())) {
        while (dirent* e = ::readdir(d)) {
            const std::string name = e->d_name;
            if (name != "." && name != ".." && !isDirectory(dir + "/" + name))
                files.push_back(dir + "/" + name);
        }
        ::closedir(d);
    }
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> files;
    for (int i = 1; i < argc; i++) {
        const std::string arg = argv[i];
        if (isDirectory(arg)) {
            const std::vector<std::string> inDir = filesOf(arg);
            files.insert(files.end(), inDir.begin(), inDir.end());
        } else {
            files.push_back(arg);
        }
    }
    if (files.empty()) {
        std::fprintf(stderr, "usage: %s FILE|DIR...: no input found\n", argv[0]);
        return 2;
    }
    for (const std::string& file : files) {
        std::ifstream in(file, std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "cannot read %s\n", file.c_str());
            return 2;
        }
        const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        /* A copy of exactly the input's size, so a read past it is caught. */
        std::vector<uint8_t> input(bytes.begin(), bytes.end());
        static const uint8_t none = 0;
        LLVMFuzzerTestOneInput(input.empty() ? &none : input.data(), input.size());
    }
    std::printf("%zu inputs replayed\n", files.size());
    return 0;
}
