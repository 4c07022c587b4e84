/*
 * The end of each input of the module's fuzz targets, over the tests' module
 * set-up: the module goes down again, so LeakSanitizer blames the input that
 * leaked, and every received message must have been released exactly once.
 */
#ifndef FUZZ_HARNESS_H
#define FUZZ_HARNESS_H

#include <sstream>

#include "check.h"
#include "module_support.h"

inline void moduleStop()
{
    resetModule();
    FUZZ_CHECK(rec::liveRaws() == 0 && rec::recorder().badReleases == 0);
    rec::reset();
}

#endif
