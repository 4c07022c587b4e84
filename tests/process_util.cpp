/*
 * End-to-end harness: programs with their output in files, and a raw peer
 * socket.
 */
#include "process_util.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <thread>

extern char** environ;

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

bool socketAddress(const std::string& path, sockaddr_un* addr)
{
    std::memset(addr, 0, sizeof *addr);
    addr->sun_family = AF_UNIX;
    if (path.size() >= sizeof addr->sun_path)
        return false;
    std::memcpy(addr->sun_path, path.c_str(), path.size() + 1);
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

/* ---- Program ------------------------------------------------------------ */

Program::Program(const std::vector<std::string>& argv) : outFd_(scratchFile()), errFd_(scratchFile())
{
    int in[2];
    if (outFd_ < 0 || errFd_ < 0 || pipe2(in, O_CLOEXEC) != 0)
        return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, outFd_, 1);
    posix_spawn_file_actions_adddup2(&actions, errFd_, 2);
    std::vector<char*> args;
    for (const std::string& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    if (posix_spawn(&pid_, args[0], &actions, nullptr, args.data(), environ) != 0)
        pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]);
    in_ = in[1];
    /* A write to a program that has ended must fail, not kill the test. */
    signal(SIGPIPE, SIG_IGN);
}

Program::~Program()
{
    finish(true);
    close(outFd_);
    close(errFd_);
}

void Program::send(const std::string& line)
{
    const std::string text = line + "\n";
    std::size_t done = 0;
    while (in_ >= 0 && done < text.size()) {
        const ssize_t n = write(in_, text.data() + done, text.size() - done);
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

bool Program::waitFor(int fd, const std::string& needle, std::size_t count)
{
    return within([&] { return countOf(contents(fd), needle) >= count; });
}

int Program::finish(bool terminate)
{
    if (ended_ || pid_ <= 0)
        return exitCode_;
    ended_ = true;
    close(in_);
    in_ = -1;
    if (terminate)
        kill(pid_, SIGTERM);
    int status = 0;
    if (!within([&] { return waitpid(pid_, &status, WNOHANG) == pid_; })) {
        kill(pid_, SIGKILL);
        waitpid(pid_, &status, 0);
    } else if (WIFEXITED(status)) {
        exitCode_ = WEXITSTATUS(status);
    }
    return exitCode_;
}

Ran runToEnd(const std::vector<std::string>& argv)
{
    Program p(argv);
    const int code = p.finish();
    return Ran{code, p.out(), p.err()};
}

std::string onTerminal(const std::vector<std::string>& argv, const std::string& input, const std::string& until)
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0)
        return "(no pseudo-terminal)";
    const int terminal = open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
    int in[2];
    if (terminal < 0 || pipe2(in, O_CLOEXEC) != 0) {
        close(master);
        return "(no pseudo-terminal)";
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, terminal, 1);
    std::vector<char*> args;
    for (const std::string& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ) != 0)
        pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]);
    close(terminal);
    signal(SIGPIPE, SIG_IGN);
    ssize_t written = write(in[1], input.data(), input.size());
    (void)written;
    std::string shown;
    within([&] {
        pollfd p = {master, POLLIN, 0};
        char buffer[4096];
        const ssize_t n = poll(&p, 1, 0) == 1 ? read(master, buffer, sizeof buffer) : 0;
        if (n > 0)
            shown.append(buffer, static_cast<std::size_t>(n));
        return pid < 0 || shown.find(until) != std::string::npos;
    });
    close(in[1]);   // the program ends at the end of its input
    int status = 0;
    if (pid > 0 && !within([&] { return waitpid(pid, &status, WNOHANG) == pid; })) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
    }
    close(master);
    return shown;
}

/* ---- Peer --------------------------------------------------------------- */

Peer::Peer(const std::string& dir, const std::string& name) : dir_(dir), path_(dir + "/" + name)
{
    sockaddr_un addr;
    fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd_ >= 0 && (!socketAddress(path_, &addr) || bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0)) {
        close(fd_);
        fd_ = -1;
    }
}

Peer::~Peer()
{
    if (fd_ >= 0) {
        close(fd_);
        unlink(path_.c_str());
    }
}

bool Peer::send(const std::string& to, const std::string& bytes)
{
    sockaddr_un addr;
    return fd_ >= 0 && socketAddress(dir_ + "/" + to, &addr) &&
           sendto(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&addr), sizeof addr) ==
               static_cast<ssize_t>(bytes.size());
}

std::string Peer::receive(std::string* from)
{
    pollfd p = {fd_, POLLIN, 0};
    std::string bytes(1 << 17, '\0');
    sockaddr_un sender{};
    socklen_t length = sizeof sender;
    const ssize_t n = fd_ >= 0 && poll(&p, 1, kWaitMs) == 1
                          ? recvfrom(fd_, &bytes[0], bytes.size(), 0, reinterpret_cast<sockaddr*>(&sender), &length)
                          : -1;
    if (from)
        *from = n >= 0 ? sender.sun_path : "";
    return bytes.substr(0, n > 0 ? static_cast<std::size_t>(n) : 0);
}

std::string Peer::message(uint32_t primitive, const std::string& text)
{
    std::string bytes;
    auto putU32 = [&bytes](uint32_t v) {
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes += static_cast<char>((v >> shift) & 0xFF);
    };
    putU32(primitive);
    bytes += '\x02';   // tag of a string field
    putU32(static_cast<uint32_t>(text.size()));
    return bytes + text;
}
