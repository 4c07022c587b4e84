/*
 * The platform for in-process benchmarks: the module's platform calls cost
 * next to nothing and keep nothing, so a benchmark measures the module and
 * the libraries it uses, not the platform. The recording platform would
 * copy and decode every message into growing lists; the working platform
 * would add threads, sockets and timers. No threads of its own.
 */
#ifndef BENCH_BENCHPLATFORM_H
#define BENCH_BENCHPLATFORM_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace benchplt {

/* What the module handed to the platform since the last reset(). */
struct Counts {
    std::size_t ipcSends = 0;
    std::size_t ipcBytes = 0;
    std::size_t timers = 0;
    std::size_t localSends = 0;
    std::size_t logs = 0;
    std::size_t terminalWrites = 0;
};

Counts& counts();
/* Forgets the tasks and the counts. */
void reset();

/* The bytes of the most recent IPC send, kept only while keepLastIpc(true):
 * benchmarks check once that a request really went out. */
void keepLastIpc(bool keep);
const std::string& lastIpc();

/* A received raw message holding one string field, as a task gets it. */
void* rawString(uint32_t primitive, const std::string& text);
/* Calls the task's callback; false when no task has that index. */
bool deliver(int task, int event, unsigned int primitive, void* raw);

}  // namespace benchplt

#endif
