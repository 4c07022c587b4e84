/*
 * The host at a terminal: a pseudo-terminal stands in for the person at the
 * keyboard. A typed line is recalled with the up arrow and run again, and
 * the history survives a restart of the host. Every wait is bounded.
 */
#include <gtest/gtest.h>

#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "process_util.h"

namespace {

const char kUp[] = "\033[A";
/* What the module writes for "ts info 1"; never part of the typed echo. */
const char kTraceSet[] = "KIVO_DebugSet pName info  iValue 1";

/* kivo-host inside the kivo console on the slave side of a pseudo-terminal. */
class Terminal {
public:
    Terminal(const std::string& stateHome, const std::string& ipcDir)
    {
        struct winsize size = {};
        size.ws_row = 24;
        size.ws_col = 80;
        pid_ = forkpty(&master_, nullptr, nullptr, &size);
        if (pid_ == 0) {
            setenv("XDG_STATE_HOME", stateHome.c_str(), 1);
            setenv("TERM", "vt100", 1);
            execl(KIVO_HOST, KIVO_HOST, "--ipc-dir", ipcDir.c_str(), "--enter", "kivo", static_cast<char*>(nullptr));
            _exit(127);
        }
    }
    ~Terminal()
    {
        if (pid_ > 0 && !ended_) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        if (master_ >= 0)
            close(master_);
    }

    bool started() const { return pid_ > 0 && master_ >= 0; }

    /* Types `keys` once the line editor reads: it has the terminal in raw
     * mode. Keys typed before that meet the kernel's line discipline, which
     * turns Ctrl-D into a NUL for the editor. */
    void type(const std::string& keys)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kWaitMs);
        termios mode;
        while (tcgetattr(master_, &mode) == 0 && (mode.c_lflag & ICANON) != 0 &&
               std::chrono::steady_clock::now() < deadline)
            waitFor("\001never\001", 1, 5);
        ASSERT_EQ(write(master_, keys.data(), keys.size()), ssize_t(keys.size()));
    }

    /* Reads the screen until it holds `needle` `count` times; false after
     * `ms`. */
    bool waitFor(const std::string& needle, std::size_t count = 1, int ms = kWaitMs)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
        while (countOf(screen_, needle) < count) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0)
                return false;
            pollfd p = {master_, POLLIN, 0};
            if (poll(&p, 1, static_cast<int>(left.count())) <= 0)
                continue;
            char buf[4096];
            const ssize_t n = read(master_, buf, sizeof buf);
            if (n <= 0)
                return false;  // the host has gone
            screen_.append(buf, static_cast<std::size_t>(n));
        }
        return true;
    }

    /* Exit code after end of input (Ctrl-D on an empty line); -1 when the
     * host did not end within kWaitMs or was killed. */
    int endInput()
    {
        type("\004");
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kWaitMs);
        int status = 0;
        while (waitpid(pid_, &status, WNOHANG) == 0) {
            if (std::chrono::steady_clock::now() >= deadline)
                return -1;
            waitFor("\001never\001", 1, 5);  // keeps the screen drained
        }
        ended_ = true;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    const std::string& screen() const { return screen_; }

private:
    pid_t pid_ = -1;
    int master_ = -1;
    bool ended_ = false;
    std::string screen_;
};

TEST(HostTerminal, UpArrowRecallsALineAndTheHistorySurvivesARestart)
{
    TempDir dir;
    const std::string ipc = dir.path() + "/ipc";
    const std::string history = dir.path() + "/state/kivo/host-history";
    {
        Terminal t(dir.path() + "/state", ipc);
        ASSERT_TRUE(t.started());
        ASSERT_TRUE(t.waitFor("kivo> "));
        t.type("ts info 1\r");
        ASSERT_TRUE(t.waitFor(kTraceSet)) << t.screen();
        t.type(std::string(kUp) + "\r");
        ASSERT_TRUE(t.waitFor(kTraceSet, 2)) << t.screen();
        EXPECT_EQ(t.endInput(), 0) << t.screen();
    }
    struct stat st;
    ASSERT_EQ(stat(history.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u) << "what was typed is the user's alone";

    Terminal again(dir.path() + "/state", ipc);
    ASSERT_TRUE(again.started());
    ASSERT_TRUE(again.waitFor("kivo> "));
    again.type(std::string(kUp) + "\r");
    EXPECT_TRUE(again.waitFor(kTraceSet)) << again.screen();
    EXPECT_EQ(again.endInput(), 0) << again.screen();
}

}  // namespace
