/*
 * Test harness: a private temporary directory, a real program with its input
 * on a pipe, and a raw datagram peer in the IPC directory. Every wait is
 * bounded and polls for a condition.
 */
#ifndef TESTS_PROCESS_UTIL_H
#define TESTS_PROCESS_UTIL_H

#include <ftw.h>
#include <stdlib.h>
#include <sys/types.h>

#include <cstdint>
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

/* A running program with a pipe on its standard input; its standard output
 * and error go to files of its own. The destructor ends it as finish(true)
 * does. */
class Program {
public:
    explicit Program(const std::vector<std::string>& argv);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    pid_t pid() const { return pid_; }
    /* Writes `line` and a newline to standard input. */
    void send(const std::string& line);
    /* Waits until standard output (error) holds `needle` at least `count`
     * times; false after kWaitMs. */
    bool waitOut(const std::string& needle, std::size_t count = 1) const { return waitFor(outFd_, needle, count); }
    bool waitErr(const std::string& needle, std::size_t count = 1) const { return waitFor(errFd_, needle, count); }
    std::string out() const { return contents(outFd_); }
    std::string err() const { return contents(errFd_); }
    /* Closes standard input (and sends SIGTERM when `terminate`), then waits
     * for the end: the exit code, or -1 when it was killed by a signal or
     * did not end within kWaitMs. */
    int finish(bool terminate = false);

private:
    pid_t pid_ = -1;
    int in_ = -1;
    int outFd_;
    int errFd_;
    int exitCode_ = -1;
    bool ended_ = false;

    static std::string contents(int fd);
    static bool waitFor(int fd, const std::string& needle, std::size_t count);
};

/* Runs a program with empty input to its end. */
struct Ran {
    int code;
    std::string out;
    std::string err;
};
Ran runToEnd(const std::vector<std::string>& argv);

/* Runs a program with `input` on its standard input and its standard
 * output on a terminal (a pseudo-terminal), until that output holds `until`
 * or kWaitMs have passed; returns what the terminal received. */
std::string onTerminal(const std::vector<std::string>& argv, const std::string& input, const std::string& until);

/* A datagram socket bound at <dir>/<name>, outside the platform: it sends
 * whatever bytes it is given, what a task never would. */
class Peer {
public:
    Peer(const std::string& dir, const std::string& name);
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    /* Sends `bytes` as one datagram to <dir>/<to>. */
    bool send(const std::string& to, const std::string& bytes);
    /* The next datagram, "" when none came within kWaitMs; `from` gets the
     * sender's path. */
    std::string receive(std::string* from = nullptr);

    /* The bytes of a message: primitive, then one string field. */
    static std::string message(uint32_t primitive, const std::string& text);

private:
    std::string dir_;
    std::string path_;
    int fd_ = -1;
};

#endif
