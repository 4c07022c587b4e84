/* consumer_cmake|consumer_pkgconfig PATH-OF-INSTALLED-libkivo.so: links against
 * the installed module through its header and loads it with dlopen, as the
 * firmware's module loader does; a switch set through the linked function is
 * read back through the looked-up one, so both reach the same module. */
#include <dlfcn.h>

#include <cstdio>

#include <kivo/kivo.h>

int main(int argc, char** argv)
{
    /* The header must name what the module exports, or the link fails
     * (volatile, so that the references stay). */
    const void* volatile declared[] = {reinterpret_cast<const void*>(&KIVO_ExpInit),
                                       reinterpret_cast<const void*>(&KIVO_ExpQuery),
                                       reinterpret_cast<const void*>(&KIVO_ExpAddContact),
                                       reinterpret_cast<const void*>(&KIVO_ExpDelEvent),
                                       reinterpret_cast<const void*>(&KIVO_Interpreter)};
    void* module = argc == 2 && declared[0] ? dlopen(argv[1], RTLD_NOW | RTLD_GLOBAL) : nullptr;
    auto get = reinterpret_cast<int (*)()>(module ? dlsym(module, "_Z17KIVO_GetIfcEnablev") : nullptr);
    const int atLoad = get ? get() : -1;
    KIVO_SetIfcEnable(0);
    if (atLoad != 1 || get() != 0) {
        std::fprintf(stderr, "usage: %s LIBKIVO, the module linked, with KIVO_GetIfcEnable 1 at load (%s)\n", argv[0],
                     module ? "loaded" : argc == 2 ? dlerror() : "no path");
        return 1;
    }
    std::printf("%s: loaded, the same module as linked\n", argv[1]);
    return 0;
}
