/*
 * Test harness: a private temporary directory, and a real program with its
 * input on a pipe and its output in files, or with all three on a
 * pseudo-terminal as a person at a keyboard has them. Every wait is bounded
 * and polls for a condition.
 */
#ifndef TESTS_PROCESS_UTIL_H
#define TESTS_PROCESS_UTIL_H

#include <ftw.h>
#include <stdlib.h>
#include <sys/types.h>

#include <cstdio>
#include <string>
#include <vector>

/* How long any wait of an end-to-end test lasts at most. */
constexpr int kWaitMs = 30000;

/* A private temporary directory, removed with everything in it. */
class TempDir {
public:
    TempDir()
    {
        char tmpl[] = "/tmp/kivo-test-XXXXXX";
        path_ = mkdtemp(tmpl) ? tmpl : "";
    }
    ~TempDir()
    {
        auto remove = [](const char* path, const struct stat*, int, FTW*) { return std::remove(path); };
        if (!path_.empty())
            nftw(path_.c_str(), remove, 16, FTW_DEPTH | FTW_PHYS);
    }
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

/* Occurrences of `needle` in `text`. */
std::size_t countOf(const std::string& text, const std::string& needle);

/* A running program; `env` adds NAME=value settings to its environment. On
 * a terminal its standard error shows on the same screen as its output. The
 * destructor ends it as finish(true) does. */
class Program {
public:
    explicit Program(const std::vector<std::string>& argv, const std::vector<std::string>& env = {},
                     bool terminal = false);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    pid_t pid() const { return pid_; }
    /* Types `line` and a line end. */
    void send(const std::string& line) { type(line + "\n"); }
    /* Waits until standard output (error) holds `needle` at least `count`
     * times; false after kWaitMs. */
    bool waitOut(const std::string& needle, std::size_t count = 1);
    bool waitErr(const std::string& needle, std::size_t count = 1);
    std::string out();
    std::string err() { return errFd_ >= 0 ? contents(errFd_) : out(); }
    /* Ends the input (and sends SIGTERM when `terminate`), then waits for
     * the end: the exit code, or -1 when it was killed by a signal or did
     * not end within kWaitMs. */
    int finish(bool terminate = false);

private:
    pid_t pid_ = -1;
    int in_ = -1;   // the pipe to standard input, or the terminal's master side
    int outFd_ = -1;
    int errFd_ = -1;
    int exitCode_ = -1;
    bool ended_ = false;
    std::string screen_;

    void type(const std::string& keys);
    static std::string contents(int fd);
};

#endif
