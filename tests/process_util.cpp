/*
 * End-to-end harness: programs with their output in files or on a
 * pseudo-terminal.
 */
#include "process_util.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace {

/* Polls `done` every 5 ms until it holds; false after kWaitMs. */
template <typename Condition>
bool within(Condition done)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kWaitMs);
    while (!done()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

/* A temporary file that exists only as long as its descriptors. */
int scratchFile()
{
    char name[] = "/tmp/kivo-test-out-XXXXXX";
    const int fd = mkostemp(name, O_CLOEXEC);
    unlink(name);
    return fd;
}

}  // namespace

std::size_t countOf(const std::string& text, const std::string& needle)
{
    std::size_t n = 0;
    for (std::size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + needle.size()))
        n++;
    return n;
}

Program::Program(const std::vector<std::string>& argv, const std::vector<std::string>& env, bool terminal)
{
    /* A write to a program that has ended must fail, not kill the test. */
    signal(SIGPIPE, SIG_IGN);
    std::vector<char*> args;
    for (const std::string& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    int in[2] = {-1, -1};
    if (terminal) {
        winsize size = {24, 80, 0, 0};
        pid_ = forkpty(&in_, nullptr, nullptr, &size);
        if (pid_ > 0)
            fcntl(in_, F_SETFD, FD_CLOEXEC);
    } else if ((outFd_ = scratchFile()) >= 0 && (errFd_ = scratchFile()) >= 0 && pipe2(in, O_CLOEXEC) == 0) {
        pid_ = fork();
        in_ = in[1];
    }
    if (pid_ == 0) {
        if (!terminal && (dup2(in[0], 0) < 0 || dup2(outFd_, 1) < 0 || dup2(errFd_, 2) < 0))
            _exit(127);
        for (const std::string& setting : env)
            putenv(const_cast<char*>(setting.c_str()));
        execv(args[0], args.data());
        _exit(127);
    }
    if (in[0] >= 0)
        close(in[0]);
}

Program::~Program()
{
    finish(true);
    for (int fd : {outFd_, errFd_})
        if (fd >= 0)
            close(fd);
}

/* A line editor reads a terminal in raw mode; keys typed before that meet
 * the kernel's line editing, which would take Ctrl-D for itself. */
void Program::type(const std::string& keys)
{
    termios mode;
    if (outFd_ < 0)
        within([&] {
            out();
            return in_ < 0 || tcgetattr(in_, &mode) != 0 || (mode.c_lflag & ICANON) == 0;
        });
    for (std::size_t done = 0; in_ >= 0 && done < keys.size();) {
        const ssize_t n = write(in_, keys.data() + done, keys.size() - done);
        if (n <= 0)
            break;
        done += static_cast<std::size_t>(n);
    }
}

/* The program writes at its own offset; pread leaves that alone. */
std::string Program::contents(int fd)
{
    std::string text;
    char buffer[4096];
    ssize_t n;
    while ((n = pread(fd, buffer, sizeof buffer, static_cast<off_t>(text.size()))) > 0)
        text.append(buffer, static_cast<std::size_t>(n));
    return text;
}

/* On a terminal, what the program wrote is read off as it comes, or the
 * program would stop at a full terminal. */
std::string Program::out()
{
    if (outFd_ >= 0)
        return contents(outFd_);
    pollfd p = {in_, POLLIN, 0};
    char buffer[4096];
    ssize_t n;
    while (in_ >= 0 && poll(&p, 1, 0) == 1 && (n = read(in_, buffer, sizeof buffer)) > 0)
        screen_.append(buffer, static_cast<std::size_t>(n));
    return screen_;
}

bool Program::waitOut(const std::string& needle, std::size_t count)
{
    return within([&] { return countOf(out(), needle) >= count; });
}

bool Program::waitErr(const std::string& needle, std::size_t count)
{
    return within([&] { return countOf(err(), needle) >= count; });
}

int Program::finish(bool terminate)
{
    if (ended_ || pid_ <= 0)
        return exitCode_;
    ended_ = true;
    if (outFd_ >= 0) {
        close(in_);
        in_ = -1;
    } else if (!terminate) {
        type("\004");   // the end of input, on an empty line
    }
    if (terminate)
        kill(pid_, SIGTERM);
    int status = 0;
    if (!within([&] {
            out();
            return waitpid(pid_, &status, WNOHANG) == pid_;
        })) {
        kill(pid_, SIGKILL);
        waitpid(pid_, &status, 0);
    } else if (WIFEXITED(status)) {
        exitCode_ = WEXITSTATUS(status);
    }
    if (in_ >= 0)
        close(in_);
    in_ = -1;
    return exitCode_;
}
