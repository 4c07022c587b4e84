/*
 * Running the real programs in end-to-end tests.
 */
#include "process_util.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

pid_t spawn(const std::vector<std::string>& argv, int in, int out, int err)
{
    pid_t pid = fork();
    if (pid != 0)
        return pid;
    dup2(in, 0);
    dup2(out, 1);
    dup2(err, 2);
    std::vector<char*> args;
    for (const std::string& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    execv(args[0], args.data());
    _exit(127);
}

/* Waits for the child until the deadline; -2 when it is still running. */
int waitUntil(pid_t pid, Clock::time_point deadline)
{
    for (;;) {
        int status = 0;
        pid_t r = waitpid(pid, &status, WNOHANG);
        if (r == pid)
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        if (r < 0)
            return -1;
        if (Clock::now() >= deadline)
            return -2;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

}  // namespace

TempDir::TempDir()
{
    char tmpl[] = "/tmp/kivo-test-XXXXXX";
    const char* made = mkdtemp(tmpl);
    path_ = made ? made : "";
}

TempDir::~TempDir()
{
    if (!path_.empty())
        std::system(("rm -rf '" + path_ + "'").c_str());
}

std::string readFile(const std::string& path)
{
    std::ifstream f(path, std::ios::binary);
    std::ostringstream s;
    s << f.rdbuf();
    return s.str();
}

RunResult runProgram(const std::vector<std::string>& argv, const std::string& input, int timeoutMs)
{
    RunResult result;
    TempDir io;
    const std::string inPath = io.path() + "/in", outPath = io.path() + "/out", errPath = io.path() + "/err";
    std::ofstream(inPath, std::ios::binary) << input;
    int in = open(inPath.c_str(), O_RDONLY);
    int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    pid_t pid = spawn(argv, in, out, err);
    close(in);
    close(out);
    close(err);
    int code = waitUntil(pid, Clock::now() + std::chrono::milliseconds(timeoutMs));
    if (code == -2) {
        result.timedOut = true;
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        code = -1;
    }
    result.exitCode = code;
    result.out = readFile(outPath);
    result.err = readFile(errPath);
    return result;
}

Background::Background(const std::vector<std::string>& argv, const std::string& errPath)
{
    int in = open("/dev/null", O_RDONLY);
    int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    pid_ = spawn(argv, in, err, err);
    close(in);
    close(err);
}

Background::~Background()
{
    stop();
}

int Background::stop()
{
    if (pid_ <= 0)
        return -1;
    kill(pid_, SIGTERM);
    int code = waitUntil(pid_, Clock::now() + std::chrono::seconds(10));
    if (code == -2) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        code = -1;
    }
    pid_ = -1;
    return code;
}

bool waitForPath(const std::string& path, int timeoutMs)
{
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    struct stat st;
    while (stat(path.c_str(), &st) != 0) {
        if (Clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}
