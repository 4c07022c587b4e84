/* End-to-end harness: programs on pipes or on a pseudo-terminal. */
#include "process_util.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

/* Polls `done` every 5 ms until it holds; false after kWaitMs. */
template <typename Condition>
static bool within(Condition done)
{
    for (int waited = 0; waited < kWaitMs; waited += 5, usleep(5000))
        if (done())
            return true;
    return false;
}

Program::Program(const std::vector<std::string>& argv, const std::vector<std::string>& env, bool terminal)
{
    signal(SIGPIPE, SIG_IGN);   // a write to a program that has ended fails, and the test goes on
    std::vector<char*> args;
    for (const std::string& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    int in[2] = {-1, -1}, out[2] = {-1, -1};
    winsize size = {24, 80, 0, 0};
    if (terminal)
        pid_ = forkpty(&in_, nullptr, nullptr, &size);
    else if (pipe2(in, O_CLOEXEC) == 0 && pipe2(out, O_CLOEXEC) == 0)
        pid_ = fork();
    if (pid_ == 0) {
        signal(SIGPIPE, SIG_DFL);
        if (!terminal && (dup2(in[0], 0) < 0 || dup2(out[1], 1) < 0 || dup2(out[1], 2) < 0))
            _exit(127);
        for (const std::string& setting : env)
            putenv(const_cast<char*>(setting.c_str()));
        execv(args[0], args.data());
        _exit(127);
    }
    if (!terminal) {
        close(in[0]);
        close(out[1]);
        in_ = in[1];
    }
    out_ = terminal ? in_ : out[0];
    fcntl(in_, F_SETFD, FD_CLOEXEC);
}

/* A line editor reads a terminal in raw mode; keys typed before that meet
 * the kernel's line editing, which would take Ctrl-D for itself. */
void Program::type(const std::string& keys)
{
    termios mode;
    within([&] { return out_ != in_ || (out(), tcgetattr(in_, &mode) != 0 || (mode.c_lflag & ICANON) == 0); });
    (void)!write(in_, keys.data(), keys.size());   // short enough to go at once; a failure shows in the output
}

/* Read off as it comes, or the program would stop at a full pipe. */
std::string Program::out()
{
    char buffer[4096];
    ssize_t n;
    pollfd p = {out_, POLLIN, 0};
    while (pid_ > 0 && poll(&p, 1, 0) == 1 && (n = read(out_, buffer, sizeof buffer)) > 0)
        output_.append(buffer, static_cast<std::size_t>(n));
    return output_;
}

bool Program::waitOut(const std::string& needle, std::size_t from)
{
    return within([&] { return out().find(needle, from) != std::string::npos; });
}

int Program::finish(bool terminate)
{
    if (pid_ <= 0)
        return exitCode_;
    if (out_ == in_ && !terminate)
        type("\004");   // the end of input, on an empty line
    else if (out_ != in_)
        close(in_);
    if (terminate)
        kill(pid_, SIGTERM);
    int status = 0;
    if (!within([&] { return out(), waitpid(pid_, &status, WNOHANG) == pid_; })) {
        kill(pid_, SIGKILL);
        waitpid(pid_, &status, 0);
    }
    exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    out();
    close(out_);
    pid_ = -1;
    return exitCode_;
}
