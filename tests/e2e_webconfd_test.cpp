/*
 * The real programs together, in a private directory: webconfd on a new
 * database (so with the sample phonebook), kivo-host with the module in the
 * kivo console, and a raw peer socket for what the module never sends. The
 * console's tables are compared byte for byte; its ISO-8859-1 letters pass
 * unchanged because standard output is not a terminal. What the parts do
 * on their own is tested below this level; here is what only the whole
 * shows.
 *
 * The console runs with the backend's traces on: every search ends with a
 * "query N finished" line after its table, and every change with an
 * "acknowledge" line, which is what the tests wait for.
 */
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>

#include <json/json.h>

#include "phonebook/request.h"
#include "process_util.h"

using namespace ZEMBRA::Phonebook;

namespace {

const char kHeader[] =
    "idx name                  firstname             uid                   backend\n"
    "------------------------------------------------------------------------------------\n";
const char kFinished[] = " finished";
const char kAcknowledged[] = "Result:642 acknowledge\n";
const char kCacheClear[] = "cache-clear notice 0x00840002";
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

std::string request(unsigned int queryId, int32_t type, const Json::Value& data)
{
    Request r(queryId, "");
    r.params = ContactParams{type, data};
    r.size = 100;
    return Json::writeString(Json::StreamWriterBuilder(), r.toJson());
}

class WebconfdE2E : public ::testing::Test {
protected:
    void startDaemon(const std::vector<std::string>& extra = {})
    {
        std::vector<std::string> argv = {WEBCONFD, "--db", db, "--ipc-dir", ipc};
        argv.insert(argv.end(), extra.begin(), extra.end());
        daemon.reset(new Program(argv));
        ASSERT_TRUE(daemon->waitErr("serving")) << daemon->err();
    }

    /* The query timer is 5000 units: 10 s by default, never reached while
     * the daemon answers. */
    void startHost(const char* timerUnitUs = "2000")
    {
        host.reset(new Program({KIVO_HOST, "--ipc-dir", ipc, "--timer-unit-us", timerUnitUs, "--enter", "kivo"}));
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
    std::string change(const std::string& line) { return run(line, kAcknowledged); }

    TempDir dir;
    const std::string ipc = dir.path() + "/ipc";
    const std::string db = dir.path() + "/phonebook.db";
    std::unique_ptr<Program> daemon;
    std::unique_ptr<Program> host;
};

/* ---- console searches and changes ----------------------------------------- */

TEST_F(WebconfdE2E, EachConsoleSearchPrintsTheDaemonsMatchesWholeAcrossReplies)
{
    startDaemon({"--reply-records", "1"});
    startHost();
    const std::string output = run("name Wa", kFinished);
    EXPECT_EQ(tableOf(output), std::string(kHeader) +
                                   row(0, "Wagner", "J\xFCrgen", "33") +
                                   number(0, false, "0621 33 44 55 66", 2, 0) +
                                   number(1, true, "0160 5544332", 3, 0) +
                                   row(1, "Walther", "Gr\xE9goire", "29") +
                                   number(0, true, "0211 5566 7788", 2, 0));
    EXPECT_EQ(countOf(output, "Result:525 strResult"), 3u) << "two replies of one contact, then the end";
    EXPECT_EQ(countOf(output, "addContact:923  strSearchPattern Wa  iCountFound 2\n"), 2u);

    const std::string fischer = std::string(kHeader) + row(0, "Fischer", "J\xF6rg", "7") +
                                number(0, false, "0711 98765-0", 2, 0) + number(1, false, "0711 98765-12", 2, 0) +
                                number(2, true, "0172 3456789", 3, 0);
    EXPECT_EQ(search("id 7"), fischer);
    EXPECT_EQ(search("number +49(0)711/98765-0"), fischer) << "another writing of its first number";
    /* Ångström files under A, after Albrecht. */
    EXPECT_EQ(search("index 1"),
              std::string(kHeader) + row(0, "\xC5ngstr\xF6m", "Per", "38") + number(0, true, "+46 31 765 43 21", 2, 0));
    EXPECT_EQ(search("id 77"), kHeader);
    EXPECT_EQ(host->finish(), 0);
}

TEST_F(WebconfdE2E, AddedContactKeepsItsLatin1TextsAndIsDeleted)
{
    startDaemon();
    startHost();
    change("add 1");
    EXPECT_EQ(search("name Wef"), std::string(kHeader) + row(0, "Wefer", "Tilmo", "41") +
                                      number(0, true, "011122233344", 1, 2));
    change("del 0");
    EXPECT_EQ(search("name Wef"), kHeader);
    /* "add 0" is Falmer Öhlenbach; the search is typed as ISO-8859-1
     * bytes, as a terminal that is no tty passes them. */
    change("add 0");
    EXPECT_EQ(search("name \xF6hl"), std::string(kHeader) + row(0, "\xD6hlenbach", "Falmer", "42"));
    EXPECT_EQ(host->finish(), 0);
    EXPECT_EQ(host->err(), "") << "no notice of its own changes, no error";
}

TEST_F(WebconfdE2E, ChangeByAnotherClientAndSigusr1MakeTheHostClearItsCache)
{
    startDaemon();
    startHost();
    search("id 1");   // the daemon now knows the host
    Peer peer(ipc, "peer@Local");
    Contact c("peer", "", "", "Ada", "Quelle", "", boost::none);
    ASSERT_TRUE(peer.send("webconfd@Local", Peer::message(0x00830001, request(9, ContactParams::Add, c.toJson()))));
    EXPECT_TRUE(host->waitErr(kCacheClear)) << host->err();
    ASSERT_EQ(kill(daemon->pid(), SIGUSR1), 0);
    EXPECT_TRUE(host->waitErr(kCacheClear, 2)) << host->err();
    EXPECT_EQ(host->finish(), 0);
    EXPECT_EQ(countOf(host->err(), kCacheClear), 2u) << "one notice each";
}

TEST_F(WebconfdE2E, SearchEndsByItsTimerWhenNoDaemonRunsOrItIsSilent)
{
    startHost("100");
    std::string output = run("name W", kFinished);
    EXPECT_EQ(tableOf(output), kHeader);
    EXPECT_NE(output.find("Timeout:676 query 0 finished by timer\n"), npos) << output;
    EXPECT_NE(host->err().find("webconfd@Local"), npos) << "the failed send is logged";

    startDaemon({"--fault-drop", "100"});
    output = run("name W", kFinished);
    EXPECT_EQ(tableOf(output), kHeader);
    EXPECT_NE(output.find("Timeout:676 query 1 finished by timer\n"), npos) << output;
}

/* Query ids start at 0 in every host: a reply meant for a host that has
 * ended must not answer the search of the next one. */
TEST_F(WebconfdE2E, ReplyToAnEndedHostDoesNotReachTheNextOne)
{
    startDaemon({"--fault-delay-ms", "1500", "--verbose"});
    startHost();
    host->send("name W");
    ASSERT_TRUE(daemon->waitErr("query 0 from kivo@Local")) << daemon->err();
    EXPECT_EQ(host->finish(), 0) << "it ends long before the delayed replies";
    startHost();
    EXPECT_EQ(search("id 7").find(row(0, "Fischer", "J\xF6rg", "7")), std::string(kHeader).size());
    EXPECT_EQ(countOf(host->out(), "Wagner"), 0u) << host->out();
}

/* Short of file descriptors, the host refuses to start or works; it never
 * aborts. Each limit stops it at another step of its start or search. */
TEST_F(WebconfdE2E, HostUnderAFileDescriptorLimitFailsCleanlyOrWorks)
{
#ifdef __SANITIZE_ADDRESS__
    /* The sanitizers' runtime needs descriptors of its own (its log, the
     * process's maps) and reports false type errors without them. */
    GTEST_SKIP() << "not under AddressSanitizer";
#endif
    for (int limit = 5; limit <= 16; limit++) {
        const std::string command = "ulimit -n " + std::to_string(limit) + " && exec " + KIVO_HOST + " --ipc-dir " +
                                    ipc + " --timer-unit-us 10 --enter kivo";
        Program p({"/bin/sh", "-c", command});
        p.send("name W");
        p.send("!sleep 200");
        const int code = p.finish();
        EXPECT_TRUE(code == 0 || code == 3 || code == 4) << "limit " << limit << ": " << code << "\n" << p.err();
        EXPECT_EQ(p.err().find("terminate called"), npos) << "limit " << limit << ": " << p.err();
    }
}

TEST_F(WebconfdE2E, HostMeetsTheDaemonInTheSameDirectoryWrittenAnotherWay)
{
    startDaemon();
    for (const std::string& spelling : {ipc + "/", ipc + "/.", dir.path() + "/x/../ipc", dir.path() + "//ipc"}) {
        host.reset(new Program({KIVO_HOST, "--ipc-dir", spelling, "--timer-unit-us", "2000", "--enter", "kivo"}));
        run("ts info 1", "CmdTraceSet");
        EXPECT_EQ(search("id 7").find(row(0, "Fischer", "J\xF6rg", "7")), std::string(kHeader).size()) << spelling;
        EXPECT_EQ(host->finish(), 0);
    }
    EXPECT_EQ(daemon->err().find("without return address"), npos) << daemon->err();
}

/* Phonebook content that would steer the operator's terminal (clear the
 * screen, set its title, a raw C1 CSI) is shown harmlessly on a terminal;
 * on a pipe the bytes stay exact. */
TEST_F(WebconfdE2E, ControlCharactersOfContactsReachATerminalOnlyShown)
{
    const std::string name = "Esc\x1b[2J\x1b]0;t\x07\x9b";
    startDaemon();
    Peer peer(ipc, "peer@Local");
    Contact c("", "", "", "", name, "", boost::none);
    ASSERT_TRUE(peer.send("webconfd@Local",
                          Peer::message(0x00830001, request(1, ContactParams::Add, c.toJson()))));
    ASSERT_NE(peer.receive().find("added contact"), npos);

    startHost();
    EXPECT_NE(search("name Esc").find(name), npos) << "a pipe gets the bytes";
    host->finish();

    const std::string shown = onTerminal({KIVO_HOST, "--ipc-dir", ipc, "--enter", "kivo"}, "ts info 1\nname Esc\n",
                                         kFinished);
    EXPECT_NE(shown.find("Esc\\x1B[2J\\x1B]0;t\\x07\\x9B"), npos) << shown;
    for (const char control : {'\x1b', '\x07', '\x9b'})
        EXPECT_EQ(shown.find(control), npos) << static_cast<int>(static_cast<unsigned char>(control));
}

/* ---- the daemon on its own ------------------------------------------------- */

TEST_F(WebconfdE2E, DaemonSurvivesMalformedDatagramsAndRequests)
{
    startDaemon();
    Peer peer(ipc, "peer@Local");
    for (const std::string& garbage : {
             std::string("\x00\x83", 2),                                // half a primitive
             std::string("\x00\x00\x00\x00\x01\x00\x00\x00\x05", 9),    // a number, no text
             Peer::message(0, std::string(60000, '[')),
             Peer::message(0, "{\"queryId\": 3, \"params\": {\"kind\": \"phone\", \"type\": 0}}"),
             /* A kind that would forge a log line and clear the screen. */
             Peer::message(0, "{\"queryId\": 4, \"params\": {\"kind\": \"x\\nINFO webconfd main:307 stopped"
                              "\\u001b[2J\\u009b\", \"type\": 0}}"),
         })
        EXPECT_TRUE(peer.send("webconfd@Local", garbage)) << garbage.size();
    /* A valid request from a socket without address, which cannot be answered. */
    const int unbound = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un to = {};
    to.sun_family = AF_UNIX;
    std::snprintf(to.sun_path, sizeof to.sun_path, "%s/webconfd@Local", ipc.c_str());
    const std::string valid = Peer::message(0, request(2, ContactParams::ById, "1"));
    EXPECT_EQ(sendto(unbound, valid.data(), valid.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to),
              static_cast<ssize_t>(valid.size()));
    close(unbound);

    startHost();
    EXPECT_EQ(search("id 7").find(row(0, "Fischer", "J\xF6rg", "7")), std::string(kHeader).size()) << "still serving";
    const std::string log = daemon->err();
    for (const char* logged : {"without a text field", "without return address", "not JSON", "is none of contact",
                               "x\\x0AINFO webconfd main:307 stopped\\x1B[2J\\x9B"})
        EXPECT_NE(log.find(logged), npos) << logged << " in:\n" << log;
    EXPECT_EQ(log.find("\nINFO webconfd main:307"), npos) << "no forged line";
    EXPECT_EQ(daemon->finish(true), 0) << "it ends cleanly, too";
}

TEST_F(WebconfdE2E, ClientThatDoesNotReadItsRepliesHoldsUpNobody)
{
    startDaemon();
    Peer frozen(ipc, "frozen@Local");
    for (unsigned int id = 0; id < 20; id++)
        ASSERT_TRUE(frozen.send("webconfd@Local", Peer::message(0, request(id, ContactParams::ById, "1"))));
    startHost();
    const std::string output = run("id 7", kFinished);
    EXPECT_NE(output.find("Result:591 query 0 finished"), npos) << "answered, not ended by its timer:\n" << output;
    ASSERT_TRUE(daemon->waitErr("frozen@Local dropped")) << daemon->err();
    EXPECT_EQ(countOf(daemon->err(), "frozen@Local"), 1u) << "one record for the burst:\n" << daemon->err();
}

TEST_F(WebconfdE2E, SecondDaemonStepsBackAndADelayedReplyDoesNotHoldUpTheStop)
{
    startDaemon({"--fault-delay-ms", "60000", "--verbose"});
    const Ran second = runToEnd({WEBCONFD, "--db", db, "--ipc-dir", ipc});
    EXPECT_EQ(second.code, 1) << second.err;
    EXPECT_NE(second.err.find("another webconfd"), npos) << second.err;

    startHost();
    host->send("id 1");
    ASSERT_TRUE(daemon->waitErr("query 0 from kivo@Local")) << daemon->err();
    /* Within the stop's bounded wait, long before the reply is due. */
    EXPECT_EQ(daemon->finish(true), 0);
    struct stat st;
    EXPECT_NE(stat((ipc + "/webconfd@Local").c_str(), &st), 0) << "its socket is gone";
}

/* A first start that did not finish never leaves a file that later starts
 * serve as an empty phonebook. */
TEST_F(WebconfdE2E, UnfinishedFirstStartLeavesNoEmptyPhonebook)
{
    std::ofstream{db};   // what a first start killed at once used to leave
    Ran r = runToEnd({WEBCONFD, "--db", db, "--ipc-dir", ipc});
    EXPECT_EQ(r.code, 1) << r.err;
    EXPECT_NE(r.err.find("not a complete phonebook"), npos) << r.err;
    ASSERT_EQ(std::remove(db.c_str()), 0);

    /* 40 blocks of 512 bytes: less than the sample phonebook needs. */
    r = runToEnd({"/bin/sh", "-c", std::string("ulimit -f 40 && exec ") + WEBCONFD + " --db " + db + " --ipc-dir " + ipc});
    EXPECT_EQ(r.code, 1) << r.err;
    EXPECT_NE(r.err.find("cannot create " + db), npos) << r.err;
    struct stat st;
    EXPECT_NE(stat(db.c_str(), &st), 0) << "nothing at the database's path";

    startDaemon();
    EXPECT_NE(daemon->err().find("created " + db + " with the sample phonebook"), npos) << daemon->err();
    EXPECT_EQ(daemon->err().find("(0 contacts)"), npos) << daemon->err();
}

TEST_F(WebconfdE2E, ImportedFileMakesTheWholePhonebookOfANewDatabase)
{
    const std::string file = dir.path() + "/mine.jsonl";
    std::ofstream(file) << "# mine\n"
                           "{\"contact\": {\"uid\": \"m1\", \"lastName\": \"M\xC3\xBC" "hle\", "
                           "\"numbers\": [{\"number\": \"0711 5\"}]}}\n";
    Ran r = runToEnd({WEBCONFD, "--db", db, "--import", file});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.err.find("imported 1 contacts"), npos) << r.err;

    startDaemon();
    startHost();
    EXPECT_EQ(search("name"), std::string(kHeader) + row(0, "M\xFChle", "", "m1") + number(0, true, "0711 5", 0, 0));

    std::ofstream(file) << "{\"contact\": 1}\n";
    r = runToEnd({WEBCONFD, "--db", db, "--import", file});
    EXPECT_EQ(r.code, 1) << "a refused line fails the import";
    EXPECT_NE(r.err.find(file + ":1:"), npos) << r.err;
}

TEST_F(WebconfdE2E, CommandLineMistakesAndUnusableFilesAreReported)
{
    Ran r = runToEnd({WEBCONFD, "--help"});
    EXPECT_EQ(r.code, 0);
    for (const char* option : {"--db", "--ipc-dir", "--import", "--fault-drop", "--fault-not-json", "SIGUSR1"})
        EXPECT_NE(r.out.find(option), npos) << option;
    EXPECT_EQ(runToEnd({WEBCONFD, "--fault-drop", "101"}).code, 2);
    EXPECT_EQ(runToEnd({WEBCONFD, "--reply-records", "0"}).code, 2);
    EXPECT_EQ(runToEnd({WEBCONFD, "--bogus"}).code, 2);
    std::ofstream(db) << "this is no database, and it is long enough to look like a header to sqlite";
    r = runToEnd({WEBCONFD, "--db", db, "--ipc-dir", ipc});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("not a database"), npos) << r.err;

    r = runToEnd({KIVO_HOST, "--ipc-dir", ipc, "--module", dir.path() + "/none.so"});
    EXPECT_EQ(r.code, 3);
    EXPECT_NE(r.err.find("cannot load module"), npos) << r.err;
    EXPECT_EQ(r.out, "");
    r = runToEnd({KIVO_HOST, "--ipc-dir", ipc, "--enter", "nothere"});
    EXPECT_EQ(r.code, 2);
    EXPECT_NE(r.err.find("no console named nothere"), npos) << r.err;
    EXPECT_EQ(runToEnd({KIVO_HOST, "--timer-unit-us", "x"}).code, 2);
    r = runToEnd({KIVO_HOST, "--help"});
    EXPECT_EQ(r.code, 0);
    EXPECT_NE(r.out.find("--timer-unit-us"), npos);

    /* The terminal's own lines begin with '!'. */
    Program terminal({KIVO_HOST, "--ipc-dir", ipc, "--enter", "kivo"});
    for (const char* line : {"!sleep 1", "!bogus", "!sleep 9223372036854775807", "!sleep 18446744073709551615",
                             "!sleep 99999999999999999999", "!sleep -1", "!quit", "ts info 1"})
        terminal.send(line);
    EXPECT_EQ(terminal.finish(), 0);
    EXPECT_EQ(countOf(terminal.err(), "unknown terminal command"), 1u) << terminal.err();
    EXPECT_EQ(countOf(terminal.err(), "!sleep wants milliseconds"), 4u) << "values that do not fit:\n" << terminal.err();
    EXPECT_EQ(terminal.out(), "") << "nothing after !quit reaches the console";
}

}  // namespace
