/* End-to-end harness: programs on a pipe or on a pseudo-terminal. */
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
    signal(SIGPIPE, SIG_IGN);   // a write to a program that has ended fails, and the test goes on
    std::vector<char*> args;
    for (const std::string& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    char name[] = "/tmp/kivo-test-out-XXXXXX";
    int in[2] = {-1, -1};
    winsize size = {24, 80, 0, 0};
    if (terminal) {
        pid_ = forkpty(&in_, nullptr, nullptr, &size);
    } else if ((out_ = mkostemp(name, O_CLOEXEC)) >= 0 && unlink(name) == 0 && pipe2(in, O_CLOEXEC) == 0) {
        pid_ = fork();
        in_ = in[1];
    }
    if (pid_ == 0) {
        if (!terminal && (dup2(in[0], 0) < 0 || dup2(out_, 1) < 0 || dup2(out_, 2) < 0))
            _exit(127);
        for (const std::string& setting : env)
            putenv(const_cast<char*>(setting.c_str()));
        execv(args[0], args.data());
        _exit(127);
    }
    fcntl(in_, F_SETFD, FD_CLOEXEC);
    if (in[0] >= 0)
        close(in[0]);
}

Program::~Program()
{
    finish(true);
    if (out_ >= 0)
        close(out_);
}

/* A line editor reads a terminal in raw mode; keys typed before that meet
 * the kernel's line editing, which would take Ctrl-D for itself. */
void Program::type(const std::string& keys)
{
    termios mode;
    within([&] { return out_ >= 0 || (out(), tcgetattr(in_, &mode) != 0 || (mode.c_lflag & ICANON) == 0); });
    for (std::size_t done = 0; in_ >= 0 && done < keys.size();) {
        const ssize_t n = write(in_, keys.data() + done, keys.size() - done);
        if (n <= 0)
            break;
        done += static_cast<std::size_t>(n);
    }
}

/* The program writes its file at its own offset, which pread leaves alone.
 * A terminal is read off as the program writes, or it would stop when the
 * terminal is full. */
std::string Program::out()
{
    char buffer[4096];
    ssize_t n;
    pollfd p = {in_, POLLIN, 0};
    if (out_ >= 0)
        screen_.clear();
    while (out_ >= 0 ? (n = pread(out_, buffer, sizeof buffer, static_cast<off_t>(screen_.size()))) > 0
                     : in_ >= 0 && poll(&p, 1, 0) == 1 && (n = read(in_, buffer, sizeof buffer)) > 0)
        screen_.append(buffer, static_cast<std::size_t>(n));
    return screen_;
}

bool Program::waitOut(const std::string& needle, std::size_t count)
{
    return within([&] { return countOf(out(), needle) >= count; });
}

int Program::finish(bool terminate)
{
    if (pid_ <= 0)
        return exitCode_;
    if (out_ < 0 && !terminate)
        type("\004");   // the end of input, on an empty line
    if (out_ >= 0)
        close(in_);
    if (terminate)
        kill(pid_, SIGTERM);
    int status = 0;
    if (!within([&] { return out(), waitpid(pid_, &status, WNOHANG) == pid_; })) {
        kill(pid_, SIGKILL);
        waitpid(pid_, &status, 0);
    } else if (WIFEXITED(status)) {
        exitCode_ = WEXITSTATUS(status);
    }
    out();
    close(in_);
    in_ = -1;
    pid_ = -1;
    return exitCode_;
}
