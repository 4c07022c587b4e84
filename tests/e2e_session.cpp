/*
 * End-to-end helpers: programs on pipes, and a raw peer socket.
 */
#include "e2e_session.h"

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

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

void putU32(std::string* out, uint32_t v)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        *out += static_cast<char>((v >> shift) & 0xFF);
}

uint32_t getU32(const std::string& in, std::size_t at)
{
    uint32_t v = 0;
    for (std::size_t i = 0; i < 4; i++)
        v = (v << 8) | static_cast<unsigned char>(in[at + i]);
    return v;
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

/* ---- Session ------------------------------------------------------------ */

Session::Session(const std::vector<std::string>& argv)
{
    int in[2], out[2], err[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0)
        return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    std::vector<char*> args;
    for (const std::string& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    if (posix_spawn(&pid_, args[0], &actions, nullptr, args.data(), environ) != 0)
        pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]);
    close(out[1]);
    close(err[1]);
    in_ = in[1];
    outFd_ = out[0];
    errFd_ = err[0];
    /* A write to a program that has ended must fail, not kill the test. */
    signal(SIGPIPE, SIG_IGN);
    reader_ = std::thread(&Session::read, this);
}

Session::~Session()
{
    finish();
}

void Session::read()
{
    pollfd fds[2] = {{outFd_, POLLIN, 0}, {errFd_, POLLIN, 0}};
    std::string* streams[2] = {&out_, &err_};
    int open = 2;
    while (open > 0) {
        if (poll(fds, 2, -1) < 0)
            break;
        for (int i = 0; i < 2; i++) {
            if (fds[i].fd < 0 || fds[i].revents == 0)
                continue;
            char buffer[4096];
            const ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
            if (n <= 0) {
                close(fds[i].fd);
                fds[i].fd = -1;
                open--;
                continue;
            }
            std::lock_guard<std::mutex> guard(lock_);
            streams[i]->append(buffer, static_cast<std::size_t>(n));
            changed_.notify_all();
        }
    }
}

void Session::send(const std::string& line)
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

bool Session::waitFor(bool errStream, const std::string& needle, std::size_t count)
{
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, std::chrono::milliseconds(kWaitMs), [&] {
        return countOf(errStream ? err_ : out_, needle) >= count;
    });
}

bool Session::waitOut(const std::string& needle, std::size_t count)
{
    return waitFor(false, needle, count);
}

bool Session::waitErr(const std::string& needle, std::size_t count)
{
    return waitFor(true, needle, count);
}

std::string Session::out()
{
    std::lock_guard<std::mutex> guard(lock_);
    return out_;
}

std::string Session::err()
{
    std::lock_guard<std::mutex> guard(lock_);
    return err_;
}

int Session::finish()
{
    if (ended_)
        return exitCode_;
    ended_ = true;
    if (in_ >= 0) {
        close(in_);
        in_ = -1;
    }
    if (pid_ > 0) {
        const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(kWaitMs);
        int status = 0;
        pid_t r;
        while ((r = waitpid(pid_, &status, WNOHANG)) == 0 && Clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        if (r == 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, &status, 0);
        } else if (r == pid_ && WIFEXITED(status)) {
            exitCode_ = WEXITSTATUS(status);
        }
    }
    if (reader_.joinable())
        reader_.join();
    return exitCode_;
}

/* ---- Peer --------------------------------------------------------------- */

Peer::Peer(const std::string& ipcDir, const std::string& name)
    : dir_(ipcDir), name_(name), path_(ipcDir + "/" + name + "@Local")
{
    sockaddr_un addr;
    if (!socketAddress(path_, &addr))
        return;
    fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    unlink(path_.c_str());
    if (fd_ >= 0 && bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
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

std::string Peer::message(uint32_t primitive, const std::string& text)
{
    std::string bytes;
    putU32(&bytes, primitive);
    bytes += '\x02';
    putU32(&bytes, static_cast<uint32_t>(text.size()));
    return bytes + text;
}

bool Peer::sendRaw(const std::string& bytes, const std::string& to)
{
    sockaddr_un addr;
    if (fd_ < 0 || !socketAddress(dir_ + "/" + to, &addr))
        return false;
    return sendto(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&addr), sizeof addr) ==
           static_cast<ssize_t>(bytes.size());
}

bool Peer::sendText(uint32_t primitive, const std::string& text, const std::string& to)
{
    return sendRaw(message(primitive, text), to);
}

bool Peer::receive(std::string* text, uint32_t* primitive)
{
    pollfd p = {fd_, POLLIN, 0};
    if (fd_ < 0 || poll(&p, 1, kWaitMs) != 1)
        return false;
    std::string bytes(65537, '\0');
    const ssize_t n = recv(fd_, &bytes[0], bytes.size(), 0);
    if (n < 9)
        return false;
    bytes.resize(static_cast<std::size_t>(n));
    if (primitive)
        *primitive = getU32(bytes, 0);
    if (bytes[4] != '\x02' || getU32(bytes, 5) != bytes.size() - 9)
        return false;
    *text = bytes.substr(9);
    return true;
}
