/*
 * The real programs together: webconfd on a new database (so with the
 * sample phonebook) and kivo-host with the module in the kivo console, in
 * a private directory. The console's output is compared byte for byte;
 * its ISO-8859-1 letters pass unchanged because standard output is a pipe.
 * A raw peer socket sends what the module never would.
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
#include <string>
#include <vector>

#include <json/json.h>

#include "e2e_session.h"
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

constexpr uint32_t kChangePrimitive = 0x00830001;
constexpr uint32_t kReplyPrimitive = 0x00830002;

/* A query timer of 2 s: never reached while the daemon answers. */
const char kTimerUnit[] = "400";
/* 500 ms, for the searches that must end by their timer. */
const char kShortTimerUnit[] = "100";

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

/* The result table within a search's output: from its header to the
 * line that ends the search. */
std::string tableOf(const std::string& output)
{
    const std::size_t start = output.rfind(kHeader);
    if (start == std::string::npos)
        return "(no table in: " + output + ")";
    std::size_t end = output.find("Result:591 query", start);
    if (end == std::string::npos)
        end = output.find("Timeout:676 query", start);
    return output.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

std::string request(unsigned int queryId, const RequestParams& params, int size = 100)
{
    Request r(queryId, "");
    r.params = params;
    r.size = size;
    return Json::writeString(Json::StreamWriterBuilder(), r.toJson());
}

Response response(const std::string& text)
{
    Json::Value json;
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &json, nullptr)) << text;
    return Response::fromJson(json, "peer");
}

template <typename P>
RequestParams params(int32_t type, const Json::Value& data)
{
    P p;
    p.type = type;
    p.data = data;
    return p;
}

class WebconfdE2E : public ::testing::Test {
protected:
    void SetUp() override
    {
        ipc = dir.path() + "/ipc";
        db = dir.path() + "/phonebook.db";
        daemonLog = dir.path() + "/webconfd.err";
    }

    void startDaemon(const std::vector<std::string>& extra = {})
    {
        std::vector<std::string> argv = {WEBCONFD, "--db", db, "--ipc-dir", ipc};
        argv.insert(argv.end(), extra.begin(), extra.end());
        daemon.reset(new Background(argv, daemonLog));
        ASSERT_TRUE(waitForPath(ipc + "/webconfd@Local", kWaitMs)) << readFile(daemonLog);
    }

    void startHost(const char* timerUnit = kTimerUnit)
    {
        host.reset(new Session({KIVO_HOST, "--ipc-dir", ipc, "--timer-unit-us", timerUnit, "--enter", "kivo"}));
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

    /* Sends a request from the peer and collects the replies up to the one
     * that ends it (no records, or an acknowledgement). */
    std::vector<Response> ask(Peer& peer, const std::string& text, uint32_t primitive = 0)
    {
        std::vector<Response> replies;
        EXPECT_TRUE(peer.sendText(primitive, text));
        std::string reply;
        uint32_t replyPrimitive = 0;
        while (peer.receive(&reply, &replyPrimitive)) {
            EXPECT_EQ(replyPrimitive, kReplyPrimitive);
            replies.push_back(response(reply));
            if (replies.back().items.empty())
                break;
        }
        EXPECT_FALSE(replies.empty()) << "no reply to " << text;
        return replies;
    }

    TempDir dir;
    std::string ipc;
    std::string db;
    std::string daemonLog;
    std::unique_ptr<Background> daemon;
    std::unique_ptr<Session> host;
};

/* ---- console searches ---------------------------------------------------- */

TEST_F(WebconfdE2E, NameSearchListsTheMatchingContactsWithTheirNumbers)
{
    startDaemon();
    startHost();
    /* Last or first name beginning with W, in phonebook order (Wöhrle
     * files as Wohrle); Zöllner is there for Wiebke. */
    const std::string expected = std::string(kHeader) +
                                 row(0, "Wagner", "J\xFCrgen", "33") +
                                 number(0, false, "0621 33 44 55 66", 2, 0) +
                                 number(1, true, "0160 5544332", 3, 0) +
                                 row(1, "Walther", "Gr\xE9goire", "29") +
                                 number(0, true, "0211 5566 7788", 2, 0) +
                                 row(2, "Weber", "Anna", "30") +
                                 number(0, false, "+49 (0)69 1234 5678", 2, 0) +
                                 number(1, false, "0151 23456789", 3, 0) +
                                 number(2, true, "069 8765 4321", 1, 0) +
                                 row(3, "Winkler", "Ma\xEBlle", "31") +
                                 number(0, true, "0351 8877665", 1, 0) +
                                 row(4, "W\xF6hrle", "S\xF6ren", "32") +
                                 number(0, false, "07644 1234", 2, 0) +
                                 number(1, true, "0172 8765432", 3, 0) +
                                 row(5, "Z\xF6llner", "Wiebke", "36") +
                                 number(0, false, "0561 7766554", 2, 0) +
                                 number(1, true, "0174 5566778", 3, 0);
    EXPECT_EQ(search("name W"), expected);
    EXPECT_EQ(search("name w"), expected) << "case does not matter";
    EXPECT_EQ(host->finish(), 0);
}

TEST_F(WebconfdE2E, IdNumberAndIndexSearchesFindTheirContact)
{
    startDaemon();
    startHost();
    const std::string fischer = std::string(kHeader) + row(0, "Fischer", "J\xF6rg", "7") +
                                number(0, false, "0711 98765-0", 2, 0) + number(1, false, "0711 98765-12", 2, 0) +
                                number(2, true, "0172 3456789", 3, 0);
    EXPECT_EQ(search("id 7"), fischer);
    EXPECT_EQ(search("number 07119876512"), fischer);
    EXPECT_EQ(search("number +49(0)711/98765-0"), fischer) << "other writing of the first number";
    EXPECT_EQ(search("number 0049172-3456789"), fischer);
    EXPECT_EQ(search("number 98765"), kHeader) << "a part of a number is no match";
    EXPECT_EQ(search("id 77"), kHeader);

    EXPECT_EQ(search("index 0"), std::string(kHeader) + row(0, "Albrecht", "Hannelore", "1") +
                                     number(0, false, "+49 711 4455-100", 2, 0) +
                                     number(1, true, "0171 2233445", 3, 0));
    /* Ångström files under A, after Albrecht. */
    EXPECT_EQ(search("index 1"), std::string(kHeader) + row(0, "\xC5ngstr\xF6m", "Per", "38") +
                                     number(0, true, "+46 31 765 43 21", 2, 0));
    EXPECT_EQ(search("index 40"), kHeader);
    EXPECT_EQ(host->finish(), 0);
}

TEST_F(WebconfdE2E, AMatchListLongerThanOneReplyArrivesWhole)
{
    startDaemon({"--reply-records", "2"});
    startHost();
    const std::string output = run("name W", kFinished);
    EXPECT_EQ(countOf(output, "Result:525 strResult"), 4u) << "three replies of two contacts, then the end";
    EXPECT_EQ(countOf(output, "addContact:923  strSearchPattern W  iCountFound 6\n"), 6u);
    EXPECT_NE(tableOf(output).find(row(5, "Z\xF6llner", "Wiebke", "36")), std::string::npos) << output;
}

/* ---- changes ------------------------------------------------------------- */

TEST_F(WebconfdE2E, AddedContactIsFoundWithItsCompanyAndThenDeleted)
{
    startDaemon();
    startHost();
    change("add 1");
    const std::string wefer = std::string(kHeader) + row(0, "Wefer", "Tilmo", "41") +
                              number(0, true, "011122233344", 1, 2);
    EXPECT_EQ(search("name Wef"), wefer);

    Peer peer(ipc, "peer");
    ASSERT_TRUE(peer.ok());
    const std::vector<Response> found = ask(peer, request(1, params<ContactParams>(0, "41")));
    ASSERT_EQ(found.size(), 2u);
    ASSERT_EQ(found[0].items.size(), 1u);
    EXPECT_EQ(static_cast<const Contact&>(*found[0].items[0]).company, "H\xF6strand");

    change("del 0");
    EXPECT_EQ(search("name Wef"), kHeader);
    EXPECT_EQ(host->finish(), 0);
    EXPECT_EQ(host->err(), "");
}

TEST_F(WebconfdE2E, Latin1TextsSurviveTheWholeRoundTrip)
{
    startDaemon();
    startHost();
    /* "add 0" is Falmer Öhlenbach; typed here as ISO-8859-1 bytes, as a
     * terminal that is no tty passes them. */
    change("add 0");
    const std::string expected = std::string(kHeader) + row(0, "\xD6hlenbach", "Falmer", "41");
    EXPECT_EQ(search("name \xF6hl"), expected);
    EXPECT_EQ(search("name \xD6HLENBACH"), expected);
    EXPECT_EQ(search("name Ohl"), kHeader) << "ö is not o";
    EXPECT_EQ(search("name J\xFCr"), std::string(kHeader) + row(0, "Wagner", "J\xFCrgen", "33") +
                                          number(0, false, "0621 33 44 55 66", 2, 0) +
                                          number(1, true, "0160 5544332", 3, 0));
    change("del 0");
    EXPECT_EQ(host->finish(), 0);
}

/* ---- the cache-clear notice ---------------------------------------------- */

TEST_F(WebconfdE2E, ChangeByAnotherClientMakesTheHostClearItsCache)
{
    startDaemon();
    startHost();
    search("id 1");   // the daemon now knows the host

    Peer peer(ipc, "peer");
    ASSERT_TRUE(peer.ok());
    Contact c("peer", "", "", "Ada", "Quelle", "", boost::optional<std::string>());
    const std::vector<Response> ack = ask(peer, request(9, params<ContactParams>(ContactParams::Add, c.toJson()), 0),
                                          kChangePrimitive);
    ASSERT_EQ(ack.size(), 1u);
    EXPECT_EQ(ack[0].type, Acknowledge);
    EXPECT_TRUE(host->waitErr(kCacheClear)) << host->err();
    EXPECT_EQ(host->finish(), 0);
    EXPECT_EQ(countOf(host->err(), kCacheClear), 1u);
}

TEST_F(WebconfdE2E, Sigusr1MakesTheKnownHostClearItsCache)
{
    startDaemon();
    startHost();
    search("id 1");
    ASSERT_EQ(kill(daemon->pid(), SIGUSR1), 0);
    EXPECT_TRUE(host->waitErr(kCacheClear)) << host->err();
    EXPECT_EQ(daemon->stop(), 0);
}

/* ---- silence ------------------------------------------------------------- */

TEST_F(WebconfdE2E, SearchEndsByItsTimerWhenNoDaemonRunsOrItIsSilent)
{
    startHost(kShortTimerUnit);
    std::string output = run("name W", kFinished);
    EXPECT_EQ(tableOf(output), kHeader);
    EXPECT_NE(output.find("Timeout:676 query 0 finished by timer\n"), std::string::npos) << output;
    EXPECT_NE(host->err().find("webconfd@Local"), std::string::npos) << "the failed send is logged";

    startDaemon({"--fault-drop", "100"});
    output = run("name W", kFinished);
    EXPECT_EQ(tableOf(output), kHeader);
    EXPECT_NE(output.find("Timeout:676 query 1 finished by timer\n"), std::string::npos) << output;
}

/* ---- bad input ----------------------------------------------------------- */

TEST_F(WebconfdE2E, DaemonSurvivesMalformedDatagramsAndRequests)
{
    startDaemon();
    Peer peer(ipc, "peer");
    ASSERT_TRUE(peer.ok());
    const std::vector<std::string> garbage = {
        "",                                                  // no primitive
        std::string("\x00\x83", 2),                          // half a primitive
        std::string("\x00\x00\x00\x00\x07\x01", 6),          // unknown field tag
        std::string("\x00\x00\x00\x00\x02\x00\x01\x00\x00x", 10),   // string longer than the datagram
        std::string("\x00\x00\x00\x00\x01\x00\x00\x00\x05", 9),     // a number, no text
        std::string(70000, 'x'),                             // longer than any message
        Peer::message(0, "not json"),
        Peer::message(0, std::string(60000, '[')),
        Peer::message(0, "{\"queryId\": 3, \"params\": {\"kind\": \"phone\", \"type\": 0}}"),
        Peer::message(0, "{\"queryId\": \"x\", \"params\": null}"),
    };
    for (const std::string& g : garbage)
        EXPECT_TRUE(peer.sendRaw(g)) << g.size();
    /* The same from a socket without address, which cannot be answered. */
    const int unbound = socket(AF_UNIX, SOCK_DGRAM, 0);
    ASSERT_GE(unbound, 0);
    sockaddr_un to = {};
    to.sun_family = AF_UNIX;
    const std::string path = ipc + "/webconfd@Local";
    std::snprintf(to.sun_path, sizeof to.sun_path, "%s", path.c_str());
    const std::string valid = Peer::message(0, request(2, params<ContactParams>(0, "1")));
    EXPECT_EQ(sendto(unbound, valid.data(), valid.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to),
              static_cast<ssize_t>(valid.size()));
    close(unbound);

    /* Still serving: the peer's searches, then the host's. Text that is
     * no UTF-8 arrives as '?', and printf directives are only letters. */
    const std::vector<Response> odd = ask(peer, request(4, params<ContactParams>(2, "\xFF\xFE%s%n")));
    ASSERT_EQ(odd.size(), 1u);
    EXPECT_EQ(odd[0].queryId, 4u);
    EXPECT_EQ(odd[0].total, 0);
    const std::vector<Response> replies = ask(peer, request(5, params<ContactParams>(0, "1")));
    ASSERT_EQ(replies.size(), 2u);
    EXPECT_EQ(replies[0].queryId, 5u);
    EXPECT_EQ(replies[0].items.size(), 1u);
    startHost();
    EXPECT_NE(search("name W").find(row(0, "Wagner", "J\xFCrgen", "33")), std::string::npos);

    const std::string log = readFile(daemonLog);
    EXPECT_NE(log.find("not JSON"), std::string::npos) << log;
    EXPECT_NE(log.find("without a text field"), std::string::npos) << log;
    EXPECT_NE(log.find("without return address"), std::string::npos) << log;
    EXPECT_NE(log.find("is none of contact, event, folder"), std::string::npos) << log;
    EXPECT_EQ(daemon->stop(), 0) << "it ends cleanly, too";
}

/* ---- what only other clients ask ------------------------------------------ */

TEST_F(WebconfdE2E, VanityEventAndFolderSearchesOverTheWire)
{
    startDaemon();
    Peer peer(ipc, "peer");
    ASSERT_TRUE(peer.ok());

    std::vector<Response> r = ask(peer, request(1, params<ContactParams>(ContactParams::ByNameVanity, "9647")));
    ASSERT_EQ(r.size(), 2u);
    ASSERT_EQ(r[0].items.size(), 1u);
    EXPECT_EQ(static_cast<const Contact&>(*r[0].items[0]).lastName, "W\xF6hrle");

    Json::Value range(Json::objectValue);
    range["from"] = 1731571200;
    range["to"] = 1731571200 + 86400;
    r = ask(peer, request(2, params<EventParams>(EventParams::ByRange, range)));
    ASSERT_EQ(r.size(), 2u);
    EXPECT_EQ(r[0].type, Events);
    EXPECT_EQ(r[0].total, 5);
    ASSERT_EQ(r[0].items.size(), 5u);
    EXPECT_EQ(static_cast<const Event&>(*r[0].items[0]).name, "Theresa P\xF6schl") << "newest first";

    r = ask(peer, request(3, params<FolderParams>(FolderParams::List, "")));
    ASSERT_EQ(r.size(), 2u);
    EXPECT_EQ(r[0].type, Folders);
    ASSERT_EQ(r[0].items.size(), 4u);
    EXPECT_EQ(static_cast<const Folder&>(*r[0].items[3]).name, "Verein Gr\xFCn-Wei\xDF");
    EXPECT_EQ(static_cast<const Folder&>(*r[0].items[3]).count, 2);
}

/* ---- the program ---------------------------------------------------------- */

TEST_F(WebconfdE2E, ImportedFileMakesTheWholePhonebookOfANewDatabase)
{
    const std::string file = dir.path() + "/mine.jsonl";
    std::ofstream(file) << "# mine\n"
                           "{\"contact\": {\"uid\": \"m1\", \"lastName\": \"M\xC3\xBC" "hle\", "
                           "\"numbers\": [{\"number\": \"0711 5\"}]}}\n";
    RunResult r = runProgram({WEBCONFD, "--db", db, "--import", file}, "", kWaitMs);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.err.find("imported 1 contacts"), std::string::npos) << r.err;

    startDaemon();
    startHost();
    EXPECT_EQ(search("name"), std::string(kHeader) + row(0, "M\xFChle", "", "m1") + number(0, true, "0711 5", 0, 0));

    std::ofstream(file) << "{\"contact\": 1}\n";
    r = runProgram({WEBCONFD, "--db", db, "--import", file}, "", kWaitMs);
    EXPECT_EQ(r.exitCode, 1) << "a refused line fails the import";
    EXPECT_NE(r.err.find(file + ":1:"), std::string::npos) << r.err;
}

TEST_F(WebconfdE2E, CommandLineMistakesAndUnusableFilesAreReported)
{
    RunResult r = runProgram({WEBCONFD, "--help"}, "", kWaitMs);
    EXPECT_EQ(r.exitCode, 0);
    for (const char* option : {"--db", "--ipc-dir", "--import", "--fault-drop", "--fault-not-json", "SIGUSR1"})
        EXPECT_NE(r.out.find(option), std::string::npos) << option;

    EXPECT_EQ(runProgram({WEBCONFD, "--fault-drop", "101"}, "", kWaitMs).exitCode, 2);
    EXPECT_EQ(runProgram({WEBCONFD, "--reply-records", "0"}, "", kWaitMs).exitCode, 2);
    EXPECT_EQ(runProgram({WEBCONFD, "--bogus"}, "", kWaitMs).exitCode, 2);

    std::ofstream(db) << "this is no database, and it is long enough to look like a header to sqlite";
    r = runProgram({WEBCONFD, "--db", db, "--ipc-dir", ipc}, "", kWaitMs);
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("not a database"), std::string::npos) << r.err;
}

TEST_F(WebconfdE2E, SecondDaemonStepsBackAndADelayedReplyDoesNotHoldUpTheStop)
{
    startDaemon({"--fault-delay-ms", "60000", "--verbose"});
    const RunResult second = runProgram({WEBCONFD, "--db", db, "--ipc-dir", ipc}, "", kWaitMs);
    EXPECT_EQ(second.exitCode, 1) << second.err;
    EXPECT_NE(second.err.find("another webconfd"), std::string::npos) << second.err;

    Peer peer(ipc, "peer");
    ASSERT_TRUE(peer.ok());
    ASSERT_TRUE(peer.sendText(0, request(1, params<ContactParams>(0, "1"))));
    for (int i = 0; i < kWaitMs / 10 && readFile(daemonLog).find("query 1 from peer@Local") == std::string::npos; i++)
        usleep(10000);
    ASSERT_NE(readFile(daemonLog).find("query 1 from peer@Local"), std::string::npos) << readFile(daemonLog);
    /* Within the stop's bounded wait, long before the reply is due. */
    EXPECT_EQ(daemon->stop(), 0);
    struct stat st;
    EXPECT_NE(stat((ipc + "/webconfd@Local").c_str(), &st), 0) << "its socket is gone";
}

}  // namespace
