/*
 * Links against the installed module through its header and loads the
 * installed libkivo.so with dlopen, as the firmware's module loader does.
 * Both must reach one and the same module: a switch set through the linked
 * function is read back through the looked-up one.
 *
 *   consumer_cmake|consumer_pkgconfig PATH-OF-INSTALLED-libkivo.so
 */
#include <dlfcn.h>

#include <cstdio>

#include <kivo/kivo.h>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s LIBKIVO\n", argv[0]);
        return 2;
    }
    /* The header's declarations must name what the module exports: the
     * link fails otherwise. */
    const void* const declared[] = {
        reinterpret_cast<const void*>(&KIVO_ExpInit), reinterpret_cast<const void*>(&KIVO_ExpQuery),
        reinterpret_cast<const void*>(&KIVO_ExpAddContact), reinterpret_cast<const void*>(&KIVO_ExpDelEvent),
        reinterpret_cast<const void*>(&KIVO_Interpreter)};
    for (const void* f : declared)
        if (f == nullptr)
            return 1;

    void* module = dlopen(argv[1], RTLD_NOW | RTLD_GLOBAL);
    if (module == nullptr) {
        std::fprintf(stderr, "dlopen: %s\n", dlerror());
        return 1;
    }
    typedef int (*GetFn)();
    GetFn get = reinterpret_cast<GetFn>(dlsym(module, "_Z17KIVO_GetIfcEnablev"));
    if (get == nullptr || get() != 1) {
        std::fprintf(stderr, "%s: no KIVO_GetIfcEnable, or not 1 at load\n", argv[1]);
        return 1;
    }
    KIVO_SetIfcEnable(0);
    if (get() != 0) {
        std::fprintf(stderr, "%s is not the module this program was linked with\n", argv[1]);
        return 1;
    }
    std::printf("%s: loaded, the same module as linked\n", argv[1]);
    return 0;
}
