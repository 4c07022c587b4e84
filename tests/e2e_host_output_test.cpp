/* What the host writes, through the real programs: at a terminal, output
 * that arrives while a line is half typed goes above the prompt; a reader
 * that does not read holds up neither the module nor the host's end. */
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "process_util.h"

namespace {

class HostOutput : public ::testing::Test {
protected:
    void startDaemon(const std::vector<std::string>& options)
    {
        std::vector<std::string> argv = {WEBCONFD, "--db", dir.path() + "/phonebook.db", "--ipc-dir", ipc};
        argv.insert(argv.end(), options.begin(), options.end());
        daemon.reset(new Program(argv));
        ASSERT_TRUE(daemon->waitOut("serving")) << daemon->out();
    }

    TempDir dir;
    const std::string ipc = dir.path() + "/ipc";
    std::unique_ptr<Program> daemon;
};

/* The daemon holds its reply a second: "nam" is typed by then. The reply's
 * lines replace the prompt's line, and the prompt with "nam" is drawn again
 * below them; the line then typed to its end is the search for "name Wag". */
TEST_F(HostOutput, ResultsArriveAboveAHalfTypedLine)
{
    startDaemon({"--fault-delay-ms", "1000"});
    Program terminal({KIVO_HOST, "--ipc-dir", ipc, "--timer-unit-us", "2000", "--enter", "svc"},
                     {"XDG_STATE_HOME=" + dir.path() + "/state", "TERM=vt100", "LC_ALL=C.UTF-8"}, true);
    ASSERT_TRUE(terminal.waitOut("svc> ")) << terminal.out();
    terminal.send("id 7");
    const std::string started = "#1 ID \"7\"\r\nsvc> ";
    ASSERT_TRUE(terminal.waitOut(started)) << terminal.out();
    const std::size_t typed = terminal.out().find(started) + started.size();
    terminal.type("nam");
    ASSERT_TRUE(terminal.waitOut("nam", typed)) << terminal.out();
    ASSERT_TRUE(terminal.waitOut("#1 end: found, 1 delivered after ")) << terminal.out();
    ASSERT_TRUE(terminal.waitOut("svc> nam", terminal.out().find("#1 end"))) << terminal.out();
    const std::string out = terminal.out();
    const std::size_t echo = out.find("nam", typed), result = out.find("\r\033[K#1 contact uid \"7\"", typed),
                      end = out.find("#1 end"), again = out.find("svc> nam", end);
    EXPECT_LT(echo, result) << out;
    // Latin-1 names in the terminal's encoding.
    EXPECT_NE(out.find("name \"Fischer\" \"J\xC3\xB6rg\"", result), std::string::npos) << out;
    EXPECT_LT(result, end) << out;
    EXPECT_NE(again, std::string::npos) << out;
    terminal.send("e Wag");
    EXPECT_TRUE(terminal.waitOut("#2 NameAlpha \"Wag\"", again)) << terminal.out();
    EXPECT_EQ(terminal.finish(), 0) << terminal.out();
}

/* Standard output into a pipe nobody reads: 300 searches with the
 * backend's traces on fill it many times over. The host still ends at the
 * end of its input and says how much it could not write. */
TEST_F(HostOutput, AReaderThatDoesNotReadHoldsNothingUp)
{
    startDaemon({});
    const std::string fifo = dir.path() + "/out";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const int stuck = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);   // open, never read
    ASSERT_GE(stuck, 0);
    Program host({"/bin/sh", "-c", "exec " KIVO_HOST " --ipc-dir " + ipc + " --enter kivo > " + fifo});
    host.send("ts info 1");
    for (int i = 0; i < 300; i++)
        host.send("name W");
    EXPECT_EQ(host.finish(), 0) << host.out();
    EXPECT_NE(host.out().find(" bytes of terminal output dropped\n"), std::string::npos) << host.out();
    close(stuck);
}

}  // namespace
