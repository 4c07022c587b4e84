/* webconfd on a new database (so with the sample phonebook) and kivo-host in
 * its kivo console with the backend's traces on, in a private directory:
 * only what needs the real programs together. */
#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
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

/* A client of the daemon outside the platform: a socket bound at `name`
 * in the IPC directory, sending requests in the platform's wire form and
 * reading replies for at most kWaitMs each. */
class RawClient {
public:
    RawClient(const std::string& ipc, const std::string& name)
    {
        fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un own = address(ipc + "/" + name);
        to_ = address(ipc + "/webconfd@Local");
        bound_ = bind(fd_, reinterpret_cast<sockaddr*>(&own), sizeof own) == 0;
        timeval wait = {kWaitMs / 1000, 0};
        setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    }
    ~RawClient() { close(fd_); }
    bool bound() const { return bound_; }

    bool request(const std::string& text)
    {
        CManMessage m;
        return m.Create(0, 0, static_cast<int>(text.size())) == MAN_OK && Platform::addString(m, text) == MAN_OK &&
               sendto(fd_, Platform::data(m), Platform::length(m), 0, reinterpret_cast<const sockaddr*>(&to_),
                      sizeof to_) == static_cast<ssize_t>(Platform::length(m));
    }
    /* A search of the contacts, `type` 0 by id, 2 by name. */
    bool search(unsigned int queryId, int type, const std::string& data, int size = 100)
    {
        return request("{\"queryId\":" + std::to_string(queryId) + ",\"params\":{\"kind\":\"contact\",\"type\":" +
                       std::to_string(type) + ",\"data\":\"" + data + "\"},\"offset\":0,\"size\":" +
                       std::to_string(size) + "}");
    }
    /* The next reply's JSON, "" when none came in time. */
    std::string reply()
    {
        char buffer[70000];
        const ssize_t n = recv(fd_, buffer, sizeof buffer, 0);
        const std::string datagram = n > 0 ? std::string(buffer, static_cast<std::size_t>(n)) : "";
        const std::size_t json = datagram.find('{');
        return json == std::string::npos ? "" : datagram.substr(json);
    }
    /* Reads one search's replies: records (one a reply) before its end,
     * and whether it ended. */
    int answer(bool* ended)
    {
        int records = 0;
        *ended = false;
        for (std::string r = reply(); !r.empty() && !*ended; r = reply()) {
            *ended = r.find("\"items\":[]") != std::string::npos;
            records += *ended ? 0 : 1;
            if (*ended)
                break;
        }
        return records;
    }

private:
    static sockaddr_un address(const std::string& path)
    {
        sockaddr_un a{};
        a.sun_family = AF_UNIX;
        std::snprintf(a.sun_path, sizeof a.sun_path, "%s", path.c_str());
        return a;
    }
    int fd_ = -1;
    bool bound_ = false;
    sockaddr_un to_{};
};

/* Waits at most kWaitMs for `path` to exist. */
bool appears(const std::string& path)
{
    for (int ms = 0; ms < kWaitMs; ms += 10) {
        if (access(path.c_str(), F_OK) == 0)
            return true;
        usleep(10000);
    }
    return false;
}

/* webconfd with its standard output and error on the pipe `err` only. */
pid_t spawnDaemon(const std::vector<std::string>& argv, int err)
{
    std::vector<char*> args;
    for (const std::string& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        signal(SIGPIPE, SIG_DFL);   // as a shell starts it; Program ignores it in the tests
        if (dup2(err, 1) < 0 || dup2(err, 2) < 0)
            _exit(127);
        execv(args[0], args.data());
        _exit(127);
    }
    return pid;
}

/* SIGTERM, then its exit code within kWaitMs; -1 when it was killed by a
 * signal, -2 when it did not end in time (it is then killed). */
int terminate(pid_t pid)
{
    kill(pid, SIGTERM);
    for (int ms = 0; ms < kWaitMs; ms += 10) {
        int status = 0;
        if (waitpid(pid, &status, WNOHANG) == pid)
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        usleep(10000);
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return -2;
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
    /* The query timer is 5000 units: 10 s here, never reached while the daemon answers. */
    void startHost(const char* timerUnitUs = "2000", const std::string& ipcDir = "")
    {
        host.reset();
        host.reset(new Program({KIVO_HOST, "--ipc-dir", ipcDir.empty() ? ipc : ipcDir, "--timer-unit-us", timerUnitUs,
                                "--enter", "kivo"}));
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
    /* A search's table: from its header to the line that ends the search. */
    std::string search(const std::string& line)
    {
        const std::string output = run(line, " finished");
        const std::size_t start = output.rfind(kHeader);
        const std::size_t end =
            std::min(output.find("Result:591 query", start), output.find("Timeout:676 query", start));
        return start == std::string::npos ? "(no table in: " + output + ")" : output.substr(start, end - start);
    }

    TempDir dir;
    const std::string ipc = dir.path() + "/ipc";
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
    startHost("2000", dir.path() + "/x/../ipc/");
    EXPECT_EQ(search("id 7"), kFischer);
}

/* A killed daemon's socket stays: sends fail, the query timer ends the
 * search, and the next daemon takes the address over. */
TEST_F(E2E, TheTimerAnswersForAKilledDaemon)
{
    startDaemon();
    startHost("200");   // the 5000-unit query timer is 1 s here
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
 * dropped (one record for the burst) and the next client is answered. */
TEST_F(E2E, AClientThatDoesNotReadHoldsUpNobody)
{
    startDaemon();
    const int frozen = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un own{}, to{};
    own.sun_family = to.sun_family = AF_UNIX;
    std::snprintf(own.sun_path, sizeof own.sun_path, "%s/frozen@Local", ipc.c_str());
    std::snprintf(to.sun_path, sizeof to.sun_path, "%s/webconfd@Local", ipc.c_str());
    ASSERT_EQ(bind(frozen, reinterpret_cast<sockaddr*>(&own), sizeof own), 0);
    for (unsigned int id = 0; id < 20; id++) {
        const std::string text = "{\"queryId\":" + std::to_string(id) +
                                 ",\"params\":{\"kind\":\"contact\",\"type\":0,\"data\":\"1\"},"
                                 "\"offset\":0,\"size\":100}";
        CManMessage request;   // the platform's own wire form, sent from outside it
        ASSERT_TRUE(request.Create(0, 0, static_cast<int>(text.size())) == MAN_OK &&
                    Platform::addString(request, text) == MAN_OK);
        ASSERT_EQ(sendto(frozen, Platform::data(request), Platform::length(request), 0,
                         reinterpret_cast<sockaddr*>(&to), sizeof to),
                  static_cast<ssize_t>(Platform::length(request)));
    }
    Program second({WEBCONFD, "--db", dir.path() + "/phonebook.db", "--ipc-dir", ipc});
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
    close(frozen);
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
    Program import({WEBCONFD, "--db", dir.path() + "/phonebook.db", "--import", file});
    ASSERT_EQ(import.finish(), 0) << import.out();
    startDaemon({"--reply-records", "1"});
    RawClient reader(ipc, "reader@Local");
    ASSERT_TRUE(reader.bound());
    for (unsigned int id = 0; id < 3; id++) {
        ASSERT_TRUE(reader.search(id, 2, "schr", 1000));
        bool ended = false;
        EXPECT_EQ(reader.answer(&ended), 300) << "search " << id;
        EXPECT_TRUE(ended) << "search " << id;
    }
}

/* The daemon's log waits for nobody: with -v and a standard error that is
 * never read it answers every search, and SIGTERM ends it. */
TEST_F(E2E, ALogNobodyReadsHoldsUpNothing)
{
    int err[2];
    ASSERT_EQ(pipe2(err, O_CLOEXEC), 0);
    const pid_t pid = spawnDaemon({WEBCONFD, "-v", "--db", dir.path() + "/phonebook.db", "--ipc-dir", ipc}, err[1]);
    close(err[1]);
    ASSERT_TRUE(appears(ipc + "/webconfd@Local"));
    RawClient client(ipc, "client@Local");
    int answered = 0;
    for (unsigned int id = 0; id < 3000; id++) {   // some 300 KB of log, a pipe holds 64 KiB
        bool ended = false;
        if (!client.search(id, 0, "7") || client.answer(&ended) != 1 || !ended)
            break;
        answered++;
    }
    EXPECT_EQ(answered, 3000);
    EXPECT_EQ(terminate(pid), 0);
    close(err[0]);
}

/* When the reader of its standard error has gone, the next log record
 * fails to be written, and the daemon goes on. */
TEST_F(E2E, ALogReaderThatLeavesKillsNothing)
{
    int err[2];
    ASSERT_EQ(pipe2(err, O_CLOEXEC), 0);
    close(err[0]);
    const pid_t pid = spawnDaemon({WEBCONFD, "--db", dir.path() + "/phonebook.db", "--ipc-dir", ipc}, err[1]);
    close(err[1]);
    ASSERT_TRUE(appears(ipc + "/webconfd@Local"));
    RawClient client(ipc, "client@Local");
    ASSERT_TRUE(client.request("not json"));   // logged
    ASSERT_TRUE(client.search(1, 0, "7"));
    bool ended = false;
    EXPECT_EQ(client.answer(&ended), 1);
    EXPECT_TRUE(ended);
    EXPECT_EQ(terminate(pid), 0);
}

/* Mistakes on the command line and files that are no phonebook end the
 * program with a code and a line saying why; a first start that did not
 * finish leaves nothing a later start would take for an empty phonebook. */
TEST_F(E2E, MistakesEndTheProgramsWithAReason)
{
    const std::string db = dir.path() + "/phonebook.db", sh = "ulimit -f 40 && exec " WEBCONFD " --db ";
    const struct {
        std::vector<std::string> argv;
        int code;
        std::string says;
    } rows[] = {
        {{WEBCONFD, "--fault-drop", "101"}, 2, "--fault-drop"},
        {{WEBCONFD, "--reply-records", "0"}, 2, "--reply-records"},
        {{WEBCONFD, "--bogus"}, 2, "--bogus"},
        {{"/bin/sh", "-c", sh + db + " --ipc-dir " + ipc}, 1, "cannot create " + db},   // file size limit
        // left by one
        {{"/bin/sh", "-c", ": > " + db + " && " + sh + db + " --ipc-dir " + ipc}, 1, "not a complete phonebook"},
        {{KIVO_HOST, "--ipc-dir", ipc, "--module", dir.path() + "/none.so"}, 3, "cannot load module"},
        {{KIVO_HOST, "--ipc-dir", ipc, "--enter", "nothere"}, 2, "no console named nothere"},
        {{KIVO_HOST, "--timer-unit-us", "0"}, 2, "--timer-unit-us wants a number from 1 to 1000000, not 0"},
    };
    for (const auto& row : rows) {
        std::remove(db.c_str());
        Program program(row.argv);
        EXPECT_EQ(program.finish(), row.code) << row.argv.back();
        EXPECT_NE(program.out().find(row.says), std::string::npos) << program.out();
        EXPECT_EQ(access(db.c_str(), F_OK) == 0, row.says == "not a complete phonebook") << "nothing made at " << db;
    }
    std::string said;   // values that do not fit; nothing after !quit reaches the console
    Program host({KIVO_HOST, "--ipc-dir", ipc, "--enter", "kivo"});
    for (const char* value : {"9223372036854775807", "18446744073709551615", "-1"}) {
        host.send(std::string("!sleep ") + value);
        said += std::string("kivo-host: !sleep wants milliseconds from 0 to 86400000, not ") + value + "\n";
    }
    host.send("!quit");
    host.send("ts info 1");
    EXPECT_EQ(host.finish(), 0);
    EXPECT_EQ(host.out(), said);
}

/* An imported file is the whole phonebook of a new database; a line it
 * refuses fails the import with the line's place. */
TEST_F(E2E, AnImportedFileIsThePhonebook)
{
    const std::string file = dir.path() + "/mine.jsonl", db = dir.path() + "/phonebook.db";
    std::ofstream(file) << "# mine\n{\"contact\": {\"uid\": \"m1\", \"lastName\": \"M\xC3\xBChle\", "
                           "\"numbers\": [{\"number\": \"0711 5\"}]}}\n";
    Program import({WEBCONFD, "--db", db, "--import", file});
    EXPECT_EQ(import.finish(), 0) << import.out();
    startDaemon();
    startHost();
    EXPECT_EQ(search("name"),
              kHeader +
                  " 0) M\xFChle                                       m1                    vornsyn   \n"
                  "    '--  0 * 0711 5                             0 0\n");
    std::ofstream(file) << "{\"contact\": 1}\n";
    Program refused({WEBCONFD, "--db", db, "--import", file});
    EXPECT_EQ(refused.finish(), 1);
    EXPECT_NE(refused.out().find(file + ":1:"), std::string::npos) << refused.out();
}

/* At a terminal the host reads with a line editor: the up arrow recalls a
 * line, also after a restart; the history is the user's alone. */
TEST_F(E2E, UpArrowRecallsALineAlsoAfterARestart)
{
    const char kTraceSet[] = "KIVO_DebugSet pName info  iValue 1";   // never part of the typed echo
    const std::vector<std::string> argv = {KIVO_HOST, "--ipc-dir", ipc, "--enter", "kivo"};
    const std::vector<std::string> env = {"XDG_STATE_HOME=" + dir.path() + "/state", "TERM=vt100"};
    for (const std::vector<std::string>& lines : {std::vector<std::string>{"ts info 1", "\033[A"}, {"\033[A"}}) {
        Program terminal(argv, env, true);
        for (const std::string& line : lines) {
            const std::size_t from = terminal.out().size();
            terminal.send(line);
            EXPECT_TRUE(terminal.waitOut(kTraceSet, from)) << terminal.out();
        }
        EXPECT_EQ(terminal.finish(), 0) << terminal.out();
    }
    struct stat st;
    ASSERT_EQ(stat((dir.path() + "/state/kivo/host-history").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
}

/* A history "file" that is a FIFO is neither read nor written: opening it
 * would wait for a writer (or reader) before the first prompt. */
TEST_F(E2E, AFifoAsTheHistoryHoldsUpNothing)
{
    const std::string state = dir.path() + "/state";
    ASSERT_EQ(mkdir(state.c_str(), 0700), 0);
    ASSERT_EQ(mkdir((state + "/kivo").c_str(), 0700), 0);
    ASSERT_EQ(mkfifo((state + "/kivo/host-history").c_str(), 0600), 0);
    Program terminal({KIVO_HOST, "--ipc-dir", ipc, "--enter", "kivo"}, {"XDG_STATE_HOME=" + state, "TERM=vt100"}, true);
    terminal.send("ts info 1");
    EXPECT_TRUE(terminal.waitOut("KIVO_DebugSet pName info  iValue 1")) << terminal.out();
    EXPECT_EQ(terminal.finish(), 0) << terminal.out();
}


/* Input without line ends costs the host a bounded line, not the input's
 * size: the overlong line is reported and skipped, never typed, and the
 * next line is read as usual. */
TEST_F(E2E, AnOverlongInputLineIsSkippedNotTyped)
{
    Program host({KIVO_HOST, "--ipc-dir", ipc, "--enter", "kivo"});
    host.send(std::string(1 << 20, 'x'));
    host.send("ts info 1");
    EXPECT_TRUE(host.waitOut("KIVO_DebugSet pName info  iValue 1")) << host.out().substr(0, 400);
    EXPECT_EQ(host.finish(), 0);
    EXPECT_NE(host.out().find("kivo-host: input line 1 longer than 65536 bytes, ignored\n"), std::string::npos)
        << host.out().substr(0, 400);
    EXPECT_EQ(host.out().find("xxxx"), std::string::npos) << "nothing of the overlong line was typed";
}

}  // namespace
