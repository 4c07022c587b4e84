/* The real webconfd (on a new database, so with the sample phonebook) and
 * kivo-host, over real sockets in a private directory, the host on pipes or
 * at a pseudo-terminal: only what needs the real programs together. */
#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>

#include "platform/manmsg.h"
#include "platform/standin.h"
#include "process_util.h"

namespace {

const std::string kHeader =
    "idx name                  firstname             uid                   backend\n"
    "------------------------------------------------------------------------------------\n";
const std::string kFischer = kHeader +
                             " 0) Fischer               J\xF6rg                  7                     vornsyn   \n"
                             "    |--  0 * 0711 98765-0                       2 0\n"
                             "    |--  1   0711 98765-12                      2 0\n"
                             "    '--  2   0172 3456789                       3 0\n";
const char kTraceSet[] = "KIVO_DebugSet pName info  iValue 1";   // what "ts info 1" traces, never its echo

sockaddr_un address(const std::string& path)
{
    sockaddr_un a{AF_UNIX, ""};
    std::snprintf(a.sun_path, sizeof a.sun_path, "%s", path.c_str());
    return a;
}

/* A client of the daemon outside the platform, bound at `name` in the IPC
 * directory: searches in the platform's wire form, each reply awaited at
 * most kWaitMs. */
class RawClient {
public:
    RawClient(const std::string& ipc, const std::string& name) : to_(address(ipc + "/webconfd@Local"))
    {
        const sockaddr_un own = address(ipc + "/" + name);
        EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr*>(&own), sizeof own), 0) << name;
        timeval wait = {kWaitMs / 1000, 0};
        setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    }
    ~RawClient() { close(fd_); }
    /* Contacts by id (`type` 0) or name (2); whether it was sent. */
    bool search(unsigned int queryId, int type, const std::string& data, int size = 100)
    {
        const std::string text = "{\"queryId\":" + std::to_string(queryId) + ",\"params\":{\"kind\":\"contact\","
                                 "\"type\":" + std::to_string(type) + ",\"data\":\"" + data + "\"},\"offset\":0,"
                                 "\"size\":" + std::to_string(size) + "}";
        CManMessage m;
        return m.Create(0, 0, static_cast<int>(text.size())) == MAN_OK && Platform::addString(m, text) == MAN_OK &&
               sendto(fd_, Platform::data(m), Platform::length(m), 0, reinterpret_cast<const sockaddr*>(&to_),
                      sizeof to_) == static_cast<ssize_t>(Platform::length(m));
    }
    /* The records (one a reply) before a search's end; -1 when no end came. */
    int answer()
    {
        static char buffer[70000];
        for (int records = 0;; records++) {
            const ssize_t n = recv(fd_, buffer, sizeof buffer, 0);
            if (n <= 0 || std::string(buffer, static_cast<std::size_t>(n)).find("\"items\":[]") != std::string::npos)
                return n <= 0 ? -1 : records;
        }
    }

private:
    int fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un to_;
};

class E2E : public ::testing::Test {
protected:
    void startDaemon(std::vector<std::string> argv = {})
    {
        argv.insert(argv.begin(), {WEBCONFD, "--db", db, "--ipc-dir", ipc});
        daemon.reset();   // before the next one takes its address
        daemon.reset(new Program(argv));
        ASSERT_TRUE(daemon->waitOut("serving")) << daemon->out();
    }
    /* The host in console `enter` (kivo: with the backend's traces on). The
     * query timer is 5000 units: 10 s here, never reached while the daemon answers. */
    void startHost(const std::string& enter = "kivo", const char* unitUs = "2000", const std::string& ipcDir = "")
    {
        host.reset();
        host.reset(new Program({KIVO_HOST, "--ipc-dir", ipcDir.empty() ? ipc : ipcDir, "--timer-unit-us", unitUs,
                                "--enter", enter}));
        if (enter == "kivo")
            run("ts info 1", "CmdTraceSet");
    }
    /* Types a console line; what followed it once it holds `until`. */
    std::string run(const std::string& line, const std::string& until)
    {
        const std::size_t from = host->out().size();
        host->send(line);
        EXPECT_TRUE(host->waitOut(until, from)) << line << ":\n" << host->out();
        return host->out().substr(from);
    }
    /* A kivo console search's table: from its header to the line that ends the search. */
    std::string search(const std::string& line)
    {
        const std::string output = run(line, " finished");
        const std::size_t start = output.rfind(kHeader);
        const std::size_t end =
            std::min(output.find("Result:591 query", start), output.find("Timeout:676 query", start));
        return start == std::string::npos ? "(no table in: " + output + ")" : output.substr(start, end - start);
    }

    TempDir dir;
    const std::string ipc = dir.path() + "/ipc", db = dir.path() + "/phonebook.db";
    std::unique_ptr<Program> daemon, host;
};

TEST_F(E2E, ConsoleSearchesAndChangesGoToTheDaemonAndBack)
{
    startDaemon({"--reply-records", "1"});   // one contact a reply
    startHost();
    EXPECT_EQ(search("name Wa"),
              kHeader +
                  " 0) Wagner                J\xFCrgen                33                    vornsyn   \n"
                  "    |--  0 * 0621 33 44 55 66                   2 0\n"
                  "    '--  1   0160 5544332                       3 0\n"
                  " 1) Walther               Gr\xE9goire              29                    vornsyn   \n"
                  "    '--  0 * 0211 5566 7788                     2 0\n");
    run("add 1", "Result:642 acknowledge\n");
    EXPECT_EQ(search("name Wef"),
              kHeader +
                  " 0) Wefer                 Tilmo                 41                    vornsyn   \n"
                  "    '--  0 * 011122233344                       1 2\n");
    EXPECT_EQ(host->finish(), 0);
    // No log record: no error, no cache-clear notice for its own changes.
    EXPECT_EQ(host->out().find("\nINFO "), std::string::npos) << host->out();
    EXPECT_EQ(host->out().find("\nERROR "), std::string::npos) << host->out();
}

/* Query ids start at 0 in every host: a reply meant for one that has ended
 * must not answer the next one, whose directory is written another way.
 * The daemon holds each reply a second, so the next host's query 0 is open
 * when the late reply leaves. */
TEST_F(E2E, RepliesGoToTheirOwnHost)
{
    startDaemon({"--fault-delay-ms", "1000", "--verbose"});
    startHost();
    host->send("name W");
    ASSERT_TRUE(daemon->waitOut("query 0 from kivo@Local")) << daemon->out();
    EXPECT_EQ(host->finish(), 0);
    startHost("kivo", "2000", dir.path() + "/x/../ipc/");
    EXPECT_EQ(search("id 7"), kFischer);
}

/* A killed daemon's socket stays: sends fail, the query timer ends the
 * search, and the next daemon takes the address over. */
TEST_F(E2E, TheTimerAnswersForAKilledDaemon)
{
    startDaemon();
    startHost("kivo", "200");   // the 5000-unit query timer is 1 s here
    EXPECT_EQ(search("id 7"), kFischer);
    ASSERT_EQ(kill(daemon->pid(), SIGKILL), 0);
    EXPECT_EQ(daemon->finish(), -1);
    EXPECT_EQ(search("id 7"), kHeader);
    EXPECT_NE(host->out().find("ERROR platform SendIpc"), std::string::npos) << host->out();
    EXPECT_NE(host->out().find("Timeout:676 query 1 finished by timer\n"), std::string::npos) << host->out();
    startDaemon();
    EXPECT_EQ(search("id 7"), kFischer);
}

/* The daemon never waits for a client that does not read: its replies are
 * dropped (one record for the burst) and the next client is answered. A
 * second daemon does not take the address of the first. */
TEST_F(E2E, AClientThatDoesNotReadHoldsUpNobody)
{
    startDaemon();
    RawClient frozen(ipc, "frozen@Local");
    for (unsigned int id = 0; id < 20; id++)
        ASSERT_TRUE(frozen.search(id, 0, "1"));
    Program second({WEBCONFD, "--db", db, "--ipc-dir", ipc});
    EXPECT_EQ(second.finish(), 1);
    EXPECT_NE(second.out().find("another webconfd"), std::string::npos) << second.out();
    startHost();
    EXPECT_EQ(search("id 7"), kFischer);
    // The replies its full queue cannot take wait in the outbox, until the
    // client has taken nothing for the patience: then they go, in one record.
    const std::string drop = "frozen@Local took no reply for ";
    EXPECT_TRUE(daemon->waitOut(drop)) << daemon->out();
    EXPECT_EQ(daemon->out().find(drop), daemon->out().rfind(drop)) << "one record for the burst";
    EXPECT_EQ(daemon->out().find("send to frozen@Local"), std::string::npos) << "a full queue is no failed send";
}

/* Linux queues ten datagrams per socket, so a long answer fills the queue
 * of a client that reads all the time: the daemon waits for room instead
 * of dropping replies, and every record arrives before the end. */
TEST_F(E2E, AReadingClientGetsEveryRecordOfALongAnswer)
{
    const std::string file = dir.path() + "/many.jsonl";
    {
        std::ofstream out(file);
        for (int i = 0; i < 300; i++)
            out << "{\"contact\": {\"lastName\": \"Schr" << 1000 + i << "\"}}\n";
    }
    Program import({WEBCONFD, "--db", db, "--import", file});
    ASSERT_EQ(import.finish(), 0) << import.out();
    startDaemon({"--reply-records", "1"});
    RawClient reader(ipc, "reader@Local");
    for (unsigned int id = 0; id < 3; id++) {
        ASSERT_TRUE(reader.search(id, 2, "schr", 1000));
        EXPECT_EQ(reader.answer(), 300) << "search " << id;
    }
}

/* The daemon's log waits for nobody: with -v and a standard error that is
 * never read (3000 searches log some 300 KB, a pipe holds 64 KiB), or whose
 * reader has gone (SIGPIPE as a shell leaves it), it answers every search,
 * and SIGTERM ends it. */
TEST_F(E2E, ALogNobodyReadsHoldsUpNothing)
{
    for (const bool gone : {false, true}) {
        startDaemon({"-v"});
        if (gone)
            daemon->closeOutput();
        RawClient client(ipc, gone ? "gone@Local" : "unread@Local");
        int answered = 0;
        while (answered < 3000 && client.search(answered, 0, "7") && client.answer() == 1)
            answered++;
        EXPECT_EQ(answered, 3000) << gone;
        EXPECT_EQ(daemon->finish(true), 0) << gone;
    }
}

/* A history "file" that is a FIFO is neither read nor written (opening it
 * would wait before the first prompt, writing it at the end); once it is
 * gone, the up arrow recalls a line of the host before, from the user's own file. */
TEST_F(E2E, HistoryAtATerminalAndAFifoAsItHoldsUpNothing)
{
    const std::string history = dir.path() + "/state/kivo/host-history";
    std::filesystem::create_directories(dir.path() + "/state/kivo");
    ASSERT_EQ(mkfifo(history.c_str(), 0600), 0);
    for (int run = 0; run < 3; run++) {
        Program terminal({KIVO_HOST, "--ipc-dir", ipc, "--enter", "kivo"},
                         {"XDG_STATE_HOME=" + dir.path() + "/state", "TERM=vt100"}, true);
        terminal.send(run < 2 ? "ts info 1" : "\033[A");
        EXPECT_TRUE(terminal.waitOut(kTraceSet)) << terminal.out();
        EXPECT_EQ(terminal.finish(), 0) << terminal.out();
        struct stat st {};
        ASSERT_EQ(stat(history.c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & (S_IFMT | 0777), (run == 0 ? S_IFIFO : S_IFREG) | 0600u);
        if (run == 0)
            std::remove(history.c_str());
    }
}

/* Input without line ends costs the host a bounded line, not the input's
 * size: the overlong line is reported and skipped, never typed, and the
 * next line is read as usual. */
TEST_F(E2E, AnOverlongInputLineIsSkippedNotTyped)
{
    Program host({KIVO_HOST, "--ipc-dir", ipc, "--enter", "kivo"});
    host.send(std::string(1 << 20, 'x'));
    host.send("ts info 1");
    EXPECT_TRUE(host.waitOut(kTraceSet)) << host.out().substr(0, 400);
    EXPECT_EQ(host.finish(), 0);
    EXPECT_NE(host.out().find("kivo-host: input line 1 longer than 65536 bytes, ignored\n"), std::string::npos)
        << host.out().substr(0, 400);
    EXPECT_EQ(host.out().find("xxxx"), std::string::npos) << "nothing of the overlong line was typed";
}

/* The service console "svc" against the sample phonebook: every query mode,
 * paging, best match, a user id, a contact and an event added and deleted.
 * A line, then exactly what follows it up to its last line. */
const std::string kSvcFischer =
    "contact uid \"7\" name \"Fischer\" \"J\xF6rg\" company \"Autohaus Fischer GmbH\" numbers \"0711 98765-0\" "
    "\"0711 98765-12\" \"0172 3456789\"";
const std::string kWag =
    "contact uid \"33\" name \"Wagner\" \"J\xFCrgen\" company \"Wagner Transporte\" numbers \"0621 33 44 55 66\" "
    "\"0160 5544332\"";
const std::pair<const char*, std::string> kSvcSteps[] = {
    {"id 7", "#1 ID \"7\"\n#1 " + kSvcFischer + " pattern \"7\" count 1\n#1 end: found, 1 delivered\n"},
    {"number +4971198765-12", "#2 Number \"+4971198765-12\"\n#2 " + kSvcFischer +
                                  " pattern \"+4971198765-12\" count 1\n#2 end: found, 1 delivered\n"},
    {"name user=anna offset=2 size=2 W",
     "#3 NameAlpha \"W\" offset 2 size 2 user \"anna\"\n#3 contact uid \"30\" name \"Weber\" \"Anna\" company "
     "\"Weber Druck\" numbers \"+49 (0)69 1234 5678\" \"0151 23456789\" \"069 8765 4321\" pattern \"W\" count 6\n"
     "#3 contact uid \"31\" name \"Winkler\" \"Ma\xEBlle\" numbers \"0351 8877665\" pattern \"W\" count 6\n"
     "#3 end: found, 2 delivered\n"},
    // Best match: the first of the six, once, when the sixth has come.
    {"name best=1 W", "#4 NameAlpha \"W\" best\n#4 " + kWag + " pattern \"W\" count 6\n#4 end: found, 1 delivered\n"},
    {"vanity 9246", "#5 NameVanity \"9246\"\n#5 " + kWag + " pattern \"9246\" count 1\n#5 end: found, 1 delivered\n"},
    {"index =0",
     "#6 Index 0\n#6 contact uid \"1\" name \"Albrecht\" \"Hannelore\" company \"Stadtwerke K\xF6lnbach\" numbers "
     "\"+49 711 4455-100\" \"0171 2233445\" pattern \"0\" count 1\n#6 end: found, 1 delivered\n"},
    {"events {\"from\": 1731571200, \"to\": 1731573000}",
     "#7 EventRange {\"from\":1731571200,\"to\":1731573000}\n"
     "#7 event uid \"e3\" outgoing time 1731573000 (2024-11-14 08:30:00 UTC) duration 45 number \"0221 1234567\" "
     "name \"\"\n"
     "#7 event uid \"e2\" incoming time 1731572100 (2024-11-14 08:15:00 UTC) duration 312 number \"+49 160 9876543\" "
     "name \"G\xFCnther B\xE4\x63ker\"\n"
     "#7 event uid \"e1\" missed time 1731571200 (2024-11-14 08:00:00 UTC) duration 0 number \"0711 98765-12\" "
     "name \"J\xF6rg Fischer\"\n#7 end: found, 3 delivered\n"},
    {"folders",
     "#8 FolderList \"\"\n#8 folder uid \"f1\" name \"Familie\" contacts 3\n"
     "#8 folder uid \"f3\" name \"Freunde\" contacts 4\n#8 folder uid \"f2\" name \"Gesch\xE4\x66tlich\" contacts 6\n"
     "#8 folder uid \"f4\" name \"Verein Gr\xFCn-Wei\xDF\" contacts 2\n#8 end: found, 4 delivered\n"},
    // A contact added, found under the uid the daemon gives it, deleted; an event likewise.
    {"add contact {\"lastName\": \"Wefer\", \"firstName\": \"Tilmo\", \"company\": \"H\xF6strand\", "
     "\"numbers\": [{\"number\": \"011122233344\"}]}",
     "add sent: contact uid \"\" name \"Wefer\" \"Tilmo\" company \"H\xF6strand\" numbers \"011122233344\"\n"},
    {"name Wef", "#9 NameAlpha \"Wef\"\n#9 contact uid \"41\" name \"Wefer\" \"Tilmo\" company \"H\xF6strand\" "
                 "numbers \"011122233344\" pattern \"Wef\" count 1\n#9 end: found, 1 delivered\n"},
    {"del contact 41", "del sent: contact uid \"41\"\n"},
    {"name Wef", "#10 NameAlpha \"Wef\"\n#10 end: nothing found\n"},
    {"add event {\"kind\": 2, \"number\": \"0711 1\", \"name\": \"Z\xF6\x65\", \"timestamp\": 1800000000, "
     "\"duration\": 5}",
     "add sent: event uid \"\" outgoing time 1800000000 (2027-01-15 08:00:00 UTC) duration 5 number \"0711 1\" "
     "name \"Z\xF6\x65\"\n"},
    {"events {\"from\": 1800000000}",
     "#11 EventRange {\"from\":1800000000}\n#11 event uid \"e13\" outgoing time 1800000000 (2027-01-15 08:00:00 UTC) "
     "duration 5 number \"0711 1\" name \"Z\xF6\x65\"\n#11 end: found, 1 delivered\n"},
    {"del event e13", "del sent: event uid \"e13\"\n"},
    {"events {\"from\": 1800000000}", "#12 EventRange {\"from\":1800000000}\n#12 end: nothing found\n"},
};

TEST_F(E2E, TheServiceConsoleAgainstTheSamplePhonebook)
{
    startDaemon();
    startHost("svc");
    for (const auto& [line, output] : kSvcSteps)
        EXPECT_EQ(run(line, output.substr(output.rfind('\n', output.size() - 2) + 1)), output) << line;
    EXPECT_EQ(host->finish(), 0);
}

/* At a terminal, output that arrives while a line is half typed goes above
 * it: the daemon holds its reply a second, "nam" is typed by then; the
 * reply's lines replace the prompt's line, the prompt with "nam" is drawn
 * again below them, and the line then typed to its end is "name Wag". */
TEST_F(E2E, ResultsArriveAboveAHalfTypedLine)
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
    terminal.send("e Wag");
    EXPECT_TRUE(terminal.waitOut("#2 NameAlpha \"Wag\"", again)) << terminal.out();
    EXPECT_EQ(terminal.finish(), 0) << terminal.out();
}

/* Standard output into a pipe nobody reads: 300 searches with the
 * backend's traces on fill it many times over. The host still ends at the
 * end of its input and says how much it could not write. */
TEST_F(E2E, AStdoutNobodyReadsHoldsNothingUp)
{
    startDaemon();
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
