/* Test harness: a private temporary directory, and a real program. */
#ifndef TESTS_PROCESS_UTIL_H
#define TESTS_PROCESS_UTIL_H

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

/* How long any wait of an end-to-end test lasts at most. */
constexpr int kWaitMs = 30000;

/* A private temporary directory, removed with everything in it. */
class TempDir {
public:
    ~TempDir() { std::error_code ignored; std::filesystem::remove_all(path_, ignored); }
    const std::string& path() const { return path_; }

private:
    char tmpl_[22] = "/tmp/kivo-test-XXXXXX";
    std::string path_ = mkdtemp(tmpl_) ? tmpl_ : "";
};

/* A running program, its input on one pipe and its output and errors on
 * another, or all three on a pseudo-terminal as at a keyboard; `env` adds
 * NAME=value settings; SIGPIPE as a shell leaves it. Its end is awaited at
 * most kWaitMs. */
class Program {
public:
    Program(const std::vector<std::string>& argv, const std::vector<std::string>& env = {}, bool terminal = false);
    ~Program() { finish(true); }

    pid_t pid() const { return pid_; }
    void send(const std::string& line) { type(line + "\n"); }
    /* Keys as typed, no line end added (at a terminal: once it reads them raw). */
    void type(const std::string& keys);
    std::string out();   // all it wrote so far
    /* Whether the output from offset `from` on came to hold `needle`. */
    bool waitOut(const std::string& needle, std::size_t from = 0);
    /* Closes the reading end of its output pipe: its next write fails. */
    void closeOutput() { close(out_), out_ = -1; }
    /* Ends its input (SIGTERM when `terminate`); the exit code, or -1. */
    int finish(bool terminate = false);

private:
    pid_t pid_ = -1;
    int in_ = -1, out_ = -1;   // the pipes' ends, or twice the terminal
    int exitCode_ = -1;
    std::string output_;
};

#endif
