/*
 * main() of a fuzz target built without libFuzzer: runs each file named
 * through the target once, as libFuzzer does. ctest replays the committed
 * seeds so in every build, the sanitizer and ARM builds too.
 */
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
    std::printf("%d inputs replayed\n", argc - 1);
    return argc > 1 ? 0 : 2;
}
