/*
 * The real programs together in a private directory: webconfd on a new
 * database (so with the sample phonebook) and kivo-host with the module in
 * its kivo console. Here is only what needs the whole: a search and a change
 * over real sockets, the timer when the daemon is gone, each program's own
 * address, and the line editor at a terminal. The console's tables are
 * compared byte for byte; its ISO-8859-1 letters pass unchanged because
 * standard output is not a terminal.
 *
 * The console runs with the backend's traces on: a search ends with a
 * "query N finished" line after its table, a change with an "acknowledge"
 * line, which is what the tests wait for.
 */
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <cstdio>
#include <memory>

#include "process_util.h"

namespace {

const std::string kHeader =
    "idx name                  firstname             uid                   backend\n"
    "------------------------------------------------------------------------------------\n";
const char kFinished[] = " finished";
const std::size_t npos = std::string::npos;

std::string row(int index, const std::string& last, const std::string& first, const std::string& uid)
{
    char line[160];
    std::snprintf(line, sizeof line, "%2d) %-20.20s  %-20.20s  %-20.20s  %-10.10s\n", index, last.c_str(),
                  first.c_str(), uid.c_str(), "vornsyn");
    return line;
}

std::string number(int index, bool last, const std::string& dial, int value1, int value2)
{
    char line[160];
    std::snprintf(line, sizeof line, "    %s %2d %s %-34s %d %d\n", last ? "'--" : "|--", index,
                  index == 0 ? "*" : " ", dial.c_str(), value1, value2);
    return line;
}

const std::string kFischer = kHeader + row(0, "Fischer", "J\xF6rg", "7") + number(0, false, "0711 98765-0", 2, 0) +
                             number(1, false, "0711 98765-12", 2, 0) + number(2, true, "0172 3456789", 3, 0);

/* The result table within a search's output: from its header to the line
 * that ends the search. */
std::string tableOf(const std::string& output)
{
    const std::size_t start = output.rfind(kHeader);
    if (start == npos)
        return "(no table in: " + output + ")";
    std::size_t end = output.find("Result:591 query", start);
    if (end == npos)
        end = output.find("Timeout:676 query", start);
    return output.substr(start, end == npos ? npos : end - start);
}

class E2E : public ::testing::Test {
protected:
    void startDaemon(std::vector<std::string> argv = {})
    {
        argv.insert(argv.begin(), {WEBCONFD, "--db", dir.path() + "/phonebook.db", "--ipc-dir", ipc});
        daemon.reset();   // before the next one takes its address
        daemon.reset(new Program(argv));
        ASSERT_TRUE(daemon->waitOut("serving")) << daemon->out();
    }

    /* The query timer is 5000 units: 10 s by default, never reached while
     * the daemon answers. */
    void startHost(const char* timerUnitUs = "2000", const std::string& ipcDir = "")
    {
        host.reset();
        host.reset(new Program(
            {KIVO_HOST, "--ipc-dir", ipcDir.empty() ? ipc : ipcDir, "--timer-unit-us", timerUnitUs, "--enter", "kivo"}));
        run("ts info 1", "CmdTraceSet");
    }

    /* Types a console line and returns what followed it once `until` has
     * appeared once more. */
    std::string run(const std::string& line, const std::string& until)
    {
        const std::string before = host->out();
        host->send(line);
        EXPECT_TRUE(host->waitOut(until, countOf(before, until) + 1))
            << "no \"" << until << "\" after \"" << line << "\":\n" << host->out().substr(before.size());
        return host->out().substr(before.size());
    }
    std::string search(const std::string& line) { return tableOf(run(line, kFinished)); }

    TempDir dir;
    const std::string ipc = dir.path() + "/ipc";
    std::unique_ptr<Program> daemon;
    std::unique_ptr<Program> host;
};

TEST_F(E2E, ConsoleSearchesAndChangesGoToTheDaemonAndBack)
{
    startDaemon({"--reply-records", "1"});
    startHost();
    const std::string output = run("name Wa", kFinished);
    EXPECT_EQ(tableOf(output), kHeader + row(0, "Wagner", "J\xFCrgen", "33") +
                                   number(0, false, "0621 33 44 55 66", 2, 0) + number(1, true, "0160 5544332", 3, 0) +
                                   row(1, "Walther", "Gr\xE9goire", "29") + number(0, true, "0211 5566 7788", 2, 0));
    EXPECT_EQ(countOf(output, "Result:525 strResult"), 3u) << "two replies of one contact, then the end";
    EXPECT_EQ(search("number +49(0)711/98765-0"), kFischer) << "another writing of its first number";

    run("add 1", "Result:642 acknowledge\n");
    EXPECT_EQ(search("name Wef"), kHeader + row(0, "Wefer", "Tilmo", "41") + number(0, true, "011122233344", 1, 2));
    run("del 0", "Result:642 acknowledge\n");
    EXPECT_EQ(search("name Wef"), kHeader);
    EXPECT_EQ(host->finish(), 0);
    EXPECT_EQ(countOf(host->out(), "\nINFO ") + countOf(host->out(), "\nERROR "), 0u)
        << "no error, no cache-clear notice for its own changes";
}

/* A killed daemon leaves its socket behind: the host's send to it fails and
 * the query timer ends the search; the next daemon takes the address over. */
TEST_F(E2E, SearchWithTheDaemonKilledEndsByItsTimer)
{
    startDaemon();
    ASSERT_EQ(kill(daemon->pid(), SIGKILL), 0);
    EXPECT_EQ(daemon->finish(), -1);
    startHost("1000");
    const std::string output = run("name W", kFinished);
    EXPECT_EQ(tableOf(output), kHeader);
    EXPECT_NE(output.find("Timeout:676 query 0 finished by timer\n"), npos) << output;
    EXPECT_NE(host->out().find("send to webconfd@Local failed"), npos) << host->out();

    startDaemon();
    EXPECT_EQ(search("id 7"), kFischer);
}

/* Query ids start at 0 in every host: a reply meant for a host that has
 * ended must not answer the search of the next one, whose directory is
 * written another way. */
TEST_F(E2E, ReplyToAnEndedHostDoesNotReachTheNextOne)
{
    startDaemon({"--fault-delay-ms", "1500", "--verbose"});
    startHost();
    host->send("name W");
    ASSERT_TRUE(daemon->waitOut("query 0 from kivo@Local")) << daemon->out();
    EXPECT_EQ(host->finish(), 0);
    startHost("2000", dir.path() + "/x/../ipc/");
    EXPECT_EQ(search("id 7"), kFischer);
    EXPECT_EQ(daemon->out().find("without return address"), npos) << daemon->out();
}

/* At a terminal the host reads with a line editor: the up arrow recalls a
 * line, and the history, the user's alone, survives a restart. */
TEST_F(E2E, UpArrowRecallsALineAlsoAfterARestart)
{
    const char kTraceSet[] = "KIVO_DebugSet pName info  iValue 1";   // never part of the typed echo
    const std::vector<std::string> argv = {KIVO_HOST, "--ipc-dir", ipc, "--enter", "kivo"};
    const std::vector<std::string> env = {"XDG_STATE_HOME=" + dir.path() + "/state", "TERM=vt100"};
    Program first(argv, env, true);
    first.send("ts info 1");
    ASSERT_TRUE(first.waitOut(kTraceSet)) << first.out();
    first.send("\033[A");
    EXPECT_TRUE(first.waitOut(kTraceSet, 2)) << first.out();
    EXPECT_EQ(first.finish(), 0) << first.out();
    struct stat st;
    ASSERT_EQ(stat((dir.path() + "/state/kivo/host-history").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);

    Program again(argv, env, true);
    again.send("\033[A");
    EXPECT_TRUE(again.waitOut(kTraceSet)) << again.out();
    EXPECT_EQ(again.finish(), 0) << again.out();
}

}  // namespace
