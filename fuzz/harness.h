/* The end of a module fuzz target's input: the module goes down, so that
 * LeakSanitizer blames the input that leaked; every message released once. */
#ifndef FUZZ_HARNESS_H
#define FUZZ_HARNESS_H
#include "check.h"
#include "module_support.h"
inline void moduleStop()
{
    resetModule();
    FUZZ_CHECK(rec::liveRaws() == 0 && rec::recorder().badReleases == 0);
    rec::reset();
}
#endif
