/*
 * Running the real programs in end-to-end tests: start, feed standard input,
 * collect output, wait with a bound, stop.
 */
#ifndef TESTS_PROCESS_UTIL_H
#define TESTS_PROCESS_UTIL_H

#include <sys/types.h>

#include <string>
#include <vector>

/* A private temporary directory, removed with everything in it. */
class TempDir {
public:
    TempDir();
    ~TempDir();
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

struct RunResult {
    int exitCode = -1;        /* -1 when killed or timed out */
    bool timedOut = false;
    std::string out;
    std::string err;
};

/* Runs argv to its end with `input` on standard input; kills it after
 * `timeoutMs`. */
RunResult runProgram(const std::vector<std::string>& argv, const std::string& input, int timeoutMs);

/* A program left running in the background, stopped (SIGTERM, then SIGKILL)
 * when the object goes. Its standard error goes to `errPath`. */
class Background {
public:
    Background(const std::vector<std::string>& argv, const std::string& errPath);
    ~Background();
    pid_t pid() const { return pid_; }
    /* Stops it now; returns its exit code, -1 if it had to be killed. */
    int stop();

private:
    pid_t pid_ = -1;
};

/* Waits up to `timeoutMs` for `path` to exist. */
bool waitForPath(const std::string& path, int timeoutMs);

std::string readFile(const std::string& path);

#endif
