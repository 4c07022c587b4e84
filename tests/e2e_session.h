/*
 * End-to-end helpers for webconfd: a program driven line by line through
 * pipes (the host's console), and a raw peer socket in the IPC directory
 * that speaks the wire format directly, to send what the module never
 * would. Every wait is bounded and polls for a condition.
 */
#ifndef TESTS_E2E_SESSION_H
#define TESTS_E2E_SESSION_H

#include <sys/types.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/* How long any wait of an end-to-end test lasts at most. */
constexpr int kWaitMs = 10000;

/* Occurrences of `needle` in `text`. */
std::size_t countOf(const std::string& text, const std::string& needle);

/* A running program with pipes on its standard input, output and error.
 * The destructor closes the input and waits (bounded) for the end, then
 * kills what is left. */
class Session {
public:
    explicit Session(const std::vector<std::string>& argv);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /* Writes `line` and a newline to standard input. */
    void send(const std::string& line);

    /* Waits until standard output (error) holds `needle` at least `count`
     * times; false after kWaitMs. */
    bool waitOut(const std::string& needle, std::size_t count = 1);
    bool waitErr(const std::string& needle, std::size_t count = 1);

    std::string out();
    std::string err();

    /* Closes standard input and waits for the end; the exit code, or -1
     * when it was killed or did not end in time. */
    int finish();

private:
    pid_t pid_ = -1;
    int in_ = -1;
    int outFd_ = -1;
    int errFd_ = -1;
    std::mutex lock_;
    std::condition_variable changed_;
    std::string out_;
    std::string err_;
    std::thread reader_;
    int exitCode_ = -1;
    bool ended_ = false;

    void read();
    bool waitFor(bool errStream, const std::string& needle, std::size_t count);
};

/* A datagram socket bound at <dir>/<name>@Local. */
class Peer {
public:
    Peer(const std::string& ipcDir, const std::string& name);
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    bool ok() const { return fd_ >= 0; }
    std::string address() const { return name_ + "@Local"; }

    /* Sends raw bytes as one datagram to <dir>/<to>. */
    bool sendRaw(const std::string& bytes, const std::string& to = "webconfd@Local");
    /* Sends a message of `primitive` with one string field. */
    bool sendText(uint32_t primitive, const std::string& text, const std::string& to = "webconfd@Local");

    /* The string field of the next message received; false after kWaitMs
     * or when the message is not primitive + one string. */
    bool receive(std::string* text, uint32_t* primitive = nullptr);

    /* The bytes of a message: primitive, then a string field. */
    static std::string message(uint32_t primitive, const std::string& text);

private:
    std::string dir_;
    std::string name_;
    std::string path_;
    int fd_ = -1;
};

#endif
