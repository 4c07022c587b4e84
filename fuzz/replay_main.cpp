/* main() of a fuzz target built without libFuzzer: runs each file named through
 * it once, as libFuzzer does; ctest so replays the seeds in every build. */
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; i++) {
        std::ifstream in(argv[i], std::ios::binary);
        /* Exactly the input's size, so a read past it is caught. */
        const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        if (!in)
            return std::fprintf(stderr, "cannot read %s\n", argv[i]), 2;
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    return argc > 1 ? 0 : 2;
}
