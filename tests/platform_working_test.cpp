// The working platform over real threads and sockets, in a private directory.
#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/dtm.h"
#include "platform/log.h"
#include "platform/manmsg.h"
#include "platform/mantask.h"
#include "platform/runtime.h"

namespace {

constexpr auto WAIT = std::chrono::seconds(5);

// Primitives that make the test callbacks misbehave.
constexpr unsigned THROW_STD = 0xEE01, THROW_OTHER = 0xEE02, KEEP = 0xEE03, FREE_TWICE = 0xEE04;

struct Got {
    int event;
    unsigned primitive;
    std::string bytes;
    std::string source;
};

struct Inbox {
    std::mutex mu;
    std::condition_variable cv;
    std::vector<Got> got;
    bool waitFor(std::size_t n)
    {
        std::unique_lock<std::mutex> lock(mu);
        return cv.wait_for(lock, WAIT, [&] { return got.size() >= n; });
    }
    std::vector<Got> snapshot()
    {
        std::lock_guard<std::mutex> lock(mu);
        return got;
    }
};
Inbox g_inbox[2];

template <int N>
void taskCallback(int event, unsigned primitive, void* raw)
{
    Got g{event, primitive, {}, {}};
    CManMessage m;
    if (event == MAN_EVENT_MESSAGE && m.Assign(raw) == MAN_OK) {
        g.bytes.assign(reinterpret_cast<const char*>(m.data()), m.length());
        g.source = PLT_MessageSource(raw);
    }
    {
        std::lock_guard<std::mutex> lock(g_inbox[N].mu);
        g_inbox[N].got.push_back(g);
    }
    g_inbox[N].cv.notify_all();
    if (event != MAN_EVENT_MESSAGE)
        return;
    if (primitive == THROW_STD)
        throw std::runtime_error("boom");
    if (primitive == THROW_OTHER)
        throw 42;
    if (primitive != KEEP)
        MAN_ExpPFree(raw);
    if (primitive == FREE_TWICE)
        MAN_ExpPFree(raw);
}

struct Record {
    int level;
    std::string file, text;
};
std::mutex g_logMu;
std::vector<Record> g_log;

void logSink(int level, const char* file, const char*, int, const char* text)
{
    std::lock_guard<std::mutex> lock(g_logMu);
    g_log.push_back({level, file, text});
}

// Error records whose text contains every one of `words`.
int errorsWith(std::initializer_list<std::string> words)
{
    std::lock_guard<std::mutex> lock(g_logMu);
    int n = 0;
    for (const Record& r : g_log) {
        bool all = r.level == PLT_LOG_ERROR;
        for (const std::string& w : words)
            all = all && r.text.find(w) != std::string::npos;
        n += all;
    }
    return n;
}

std::string message(unsigned primitive, unsigned value, const std::string& text)
{
    CManMessage m;
    m.Create(primitive, 0, 0);
    m.addU32(value);
    m.addString(text);
    return std::string(reinterpret_cast<const char*>(m.data()), m.length());
}

int send(unsigned primitive, int taskNo)
{
    CManMessage m;
    m.Create(primitive, 0, 0);
    return cManIO.SendLocal(m, taskNo);
}

class Working : public ::testing::Test {
protected:
    std::string dir;
    std::string ipc;
    int peer = -1;

    void SetUp() override
    {
        char tmpl[] = "/tmp/plt-test-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir = tmpl;
        ipc = dir + "/ipc";
        for (Inbox& box : g_inbox)
            box.got.clear();
        g_log.clear();
        PLT_SetLogSink(logSink);
        ASSERT_EQ(PLT_SetIpcDir(ipc), MAN_OK);
        PLT_SetTimerUnitUs(100);
    }

    void TearDown() override
    {
        PLT_Shutdown();
        PLT_SetLogSink(nullptr);
        if (peer >= 0) {
            ::close(peer);
            ::unlink((ipc + "/peer@Local").c_str());
        }
        ::rmdir(ipc.c_str());
        ::rmdir(dir.c_str());
    }

    // Creates tasks A (index 10) and B (index 11) and waits for their start.
    void startTwo()
    {
        ASSERT_EQ(MAN_ExpTCreate("A", &TaskIdTbl[10], 0, taskCallback<0>), MAN_OK);
        ASSERT_EQ(MAN_ExpTCreate("B", &TaskIdTbl[11], 0, taskCallback<1>), MAN_OK);
        ASSERT_TRUE(g_inbox[0].waitFor(1) && g_inbox[1].waitFor(1));
    }

    sockaddr_un addressOf(const std::string& name)
    {
        sockaddr_un sa{};
        sa.sun_family = AF_UNIX;
        std::snprintf(sa.sun_path, sizeof sa.sun_path, "%s/%s", ipc.c_str(), name.c_str());
        return sa;
    }

    // A foreign process's socket, bound at "peer@Local".
    void openPeer()
    {
        peer = ::socket(AF_UNIX, SOCK_DGRAM, 0);
        sockaddr_un sa = addressOf("peer@Local");
        ASSERT_EQ(::bind(peer, reinterpret_cast<sockaddr*>(&sa), sizeof sa), 0);
        timeval tv{5, 0};
        ::setsockopt(peer, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    }

    void peerSend(const std::string& bytes, const std::string& to)
    {
        sockaddr_un sa = addressOf(to);
        ASSERT_EQ(::sendto(peer, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&sa),
                           sizeof sa),
                  static_cast<ssize_t>(bytes.size()));
    }

    // Receives one datagram on the peer socket; returns the sender's path.
    std::string peerReceive(std::string& bytes)
    {
        std::vector<char> buf(MAN_MAX_MSG);
        sockaddr_un from{};
        socklen_t len = sizeof from;
        ssize_t n = ::recvfrom(peer, buf.data(), buf.size(), 0, reinterpret_cast<sockaddr*>(&from),
                               &len);
        bytes.assign(buf.data(), n > 0 ? static_cast<std::size_t>(n) : 0);
        return n > 0 ? std::string(from.sun_path) : std::string();
    }
};

TEST_F(Working, StartEventComesBeforeAnyMessage)
{
    ASSERT_EQ(MAN_ExpTCreate("A", &TaskIdTbl[10], 0, taskCallback<0>), MAN_OK);
    EXPECT_NE(TaskIdTbl[10], 0);
    ASSERT_EQ(send(0x77, 10), MAN_OK);
    ASSERT_TRUE(g_inbox[0].waitFor(2));
    auto got = g_inbox[0].snapshot();
    EXPECT_EQ(got[0].event, MAN_EVENT_CONTROL);
    EXPECT_EQ(got[0].primitive, static_cast<unsigned>(MAN_PRIM_START));
    EXPECT_EQ(got[1].event, MAN_EVENT_MESSAGE);
    EXPECT_EQ(got[1].primitive, 0x77u);
}

TEST_F(Working, TaskCreationIsValidated)
{
    EXPECT_EQ(MAN_ExpTCreate("a/b", &TaskIdTbl[1], 0, taskCallback<0>), MAN_E_FORMAT);
    EXPECT_EQ(MAN_ExpTCreate(std::string(32, 'a').c_str(), &TaskIdTbl[1], 0, taskCallback<0>),
              MAN_E_FORMAT);
    EXPECT_EQ(MAN_ExpTCreate("A", &TaskIdTbl[1], 0, nullptr), MAN_E_FORMAT);
    ASSERT_EQ(MAN_ExpTCreate("A", &TaskIdTbl[1], 0, taskCallback<0>), MAN_OK);
    EXPECT_EQ(MAN_ExpTCreate("B", &TaskIdTbl[1], 0, taskCallback<1>), MAN_E_STATE);
    int id = 0;
    EXPECT_EQ(MAN_ExpTCreate("A", &id, 0, taskCallback<1>), MAN_E_STATE);
    EXPECT_EQ(PLT_SetIpcDir(ipc), MAN_E_STATE);  // only before the first task
}

TEST_F(Working, TimerDeliversItsMessageToTheTask)
{
    startTwo();
    CManMessage m;
    ASSERT_EQ(m.Create(2, 0, 0), MAN_OK);
    ASSERT_EQ(m.addU32(4711), MAN_OK);
    ASSERT_EQ(cManIO.TimerLocal(m, 11, 5), MAN_OK);
    EXPECT_EQ(cManIO.TimerLocal(m, 12, 1), MAN_E_NOTASK);
    const std::string sent(reinterpret_cast<const char*>(m.data()), m.length());
    m.Delete();  // the timer keeps its own copy
    ASSERT_TRUE(g_inbox[1].waitFor(2));
    EXPECT_EQ(g_inbox[1].snapshot()[1].bytes, sent);
}

TEST_F(Working, IpcBetweenTasksKeepsTheBytes)
{
    startTwo();
    CManMessage m;
    ASSERT_EQ(m.Create(0x00830002, 0, 0), MAN_OK);
    ASSERT_EQ(m.addU32(7), MAN_OK);
    ASSERT_EQ(m.addString(std::string("{\"a\":\0\xff}", 8)), MAN_OK);
    std::string bytes(reinterpret_cast<const char*>(m.data()), m.length());
    ASSERT_EQ(cManIO.SendIpc(m, "A@Local", "B@Local"), MAN_OK);
    ASSERT_TRUE(g_inbox[1].waitFor(2));
    EXPECT_EQ(g_inbox[1].snapshot()[1].primitive, 0x00830002u);
    EXPECT_EQ(g_inbox[1].snapshot()[1].bytes, bytes);
    EXPECT_EQ(g_inbox[1].snapshot()[1].source, "A@Local") << "a server answers the sender";
}

TEST_F(Working, DatagramLeavesFromTheSourceOrTheFirstTask)
{
    startTwo();
    openPeer();
    CManMessage m;
    ASSERT_EQ(m.Create(5, 0, 0), MAN_OK);
    std::string got;
    ASSERT_EQ(cManIO.SendIpc(m, "B@Local", "peer@Local"), MAN_OK);
    EXPECT_EQ(peerReceive(got), ipc + "/B@Local");
    EXPECT_EQ(got, std::string("\0\0\0\5", 4));
    ASSERT_EQ(cManIO.SendIpc(m, "other@Local", "peer@Local"), MAN_OK);
    EXPECT_EQ(peerReceive(got), ipc + "/A@Local");
    ASSERT_EQ(cManIO.SendIpc(m, nullptr, "peer@Local"), MAN_OK);
    EXPECT_EQ(peerReceive(got), ipc + "/A@Local");
}

TEST_F(Working, SendIpcFailuresAreReportedAndLogged)
{
    CManMessage m;
    ASSERT_EQ(m.Create(5, 0, 0), MAN_OK);
    EXPECT_EQ(cManIO.SendIpc(m, nullptr, "B@Local"), MAN_E_NOTASK);  // no task to send from
    startTwo();
    EXPECT_EQ(cManIO.SendIpc(m, nullptr, "nobody@Local"), MAN_E_IO);
    EXPECT_EQ(errorsWith({"nobody@Local"}), 1);
    EXPECT_EQ(cManIO.SendIpc(m, nullptr, "nobody"), MAN_E_NOTASK);
    EXPECT_EQ(errorsWith({"nobody"}), 2);
    CManMessage empty;
    EXPECT_EQ(cManIO.SendIpc(empty, nullptr, "B@Local"), MAN_E_STATE);
}

TEST_F(Working, BadDatagramsAreLoggedAndDropped)
{
    startTwo();
    openPeer();
    std::string bad = message(0x66, 1, "x");
    bad[9] = 0x07;  // unknown tag of the second field
    peerSend(std::string(MAN_MAX_MSG + 1, '\0'), "B@Local");
    peerSend(std::string("\0\0\1", 3), "B@Local");
    peerSend(bad, "B@Local");
    peerSend(message(0x67, 2, "good"), "B@Local");
    ASSERT_TRUE(g_inbox[1].waitFor(2));
    PLT_Drain();
    auto got = g_inbox[1].snapshot();
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[1].primitive, 0x67u);
    EXPECT_EQ(errorsWith({"longer than", "peer@Local"}), 1);
    EXPECT_EQ(errorsWith({"shorter than"}), 1);
    EXPECT_EQ(errorsWith({"malformed"}), 1);
    std::lock_guard<std::mutex> lock(g_logMu);
    for (const Record& r : g_log)
        EXPECT_EQ(r.file, "platform");
}

TEST_F(Working, CallbackMistakesAreLoggedAndTaskGoesOn)
{
    startTwo();
    for (unsigned primitive : {THROW_STD, THROW_OTHER, KEEP, FREE_TWICE, 0x68u})
        ASSERT_EQ(send(primitive, 11), MAN_OK);
    ASSERT_TRUE(g_inbox[1].waitFor(6));
    PLT_Drain();  // the dispatcher logs after the callback returns
    EXPECT_EQ(g_inbox[1].snapshot()[5].primitive, 0x68u);
    EXPECT_EQ(errorsWith({"task B", "boom"}), 1);
    EXPECT_EQ(errorsWith({"task B", "0x0000ee02"}), 1);
    EXPECT_EQ(errorsWith({"task B", "did not release", "0x0000ee03"}), 1);
    EXPECT_EQ(errorsWith({"released twice"}), 1);
    int notMine = 0;
    MAN_ExpPFree(&notMine);
    EXPECT_EQ(errorsWith({"not the message being delivered"}), 1);
}

TEST_F(Working, DrainWaitsForDatagramsInFlight)
{
    startTwo();
    CManMessage m;
    ASSERT_EQ(m.Create(0x69, 0, 0), MAN_OK);
    for (int i = 0; i < 8; i++)
        ASSERT_EQ(cManIO.SendIpc(m, "A@Local", "B@Local"), MAN_OK);
    PLT_Drain();
    EXPECT_EQ(g_inbox[1].snapshot().size(), 9u);
}

TEST_F(Working, IpcDirectoryMustBePrivate)
{
    struct stat st;
    ASSERT_EQ(::stat(ipc.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);
    ASSERT_EQ(::chmod(ipc.c_str(), 0755), 0);
    EXPECT_EQ(PLT_SetIpcDir(ipc), MAN_E_IO);
}

int g_lines = 0;
int interpreter(const char* line)
{
    g_lines++;
    if (std::strcmp(line, "exit") == 0)
        DTM_ExpReturn();
    return 7;
}
std::string g_terminal;
void terminalSink(const char* bytes, std::size_t length)
{
    g_terminal.append(bytes, length);
}

TEST_F(Working, TerminalEntersAndLeavesConsoles)
{
    g_lines = 0;
    g_terminal.clear();
    PLT_SetTerminalSink(terminalSink);
    ASSERT_EQ(DTM_ExpRegister("kivo", "test console", interpreter), MAN_OK);
    EXPECT_EQ(DTM_ExpRegister("kivo", "again", interpreter), MAN_E_STATE);
    EXPECT_EQ(PLT_TerminalLine("nosuch"), 0);
    EXPECT_EQ(g_terminal, "unknown console: nosuch\n");
    EXPECT_EQ(PLT_TerminalLine("  kivo \n"), 0);
    EXPECT_EQ(PLT_CurrentConsole(), "kivo");
    EXPECT_EQ(PLT_TerminalLine("kivo"), 7);  // inside, even its own name goes to it
    EXPECT_EQ(PLT_TerminalLine("exit"), 7);
    EXPECT_EQ(PLT_CurrentConsole(), "");
    EXPECT_EQ(g_lines, 2);
    PLT_SetTerminalSink(nullptr);
}

TEST_F(Working, LogRecordsAreFormattedWhole)
{
    PLT_SetLogSink(nullptr);
    ::testing::internal::CaptureStderr();
    LOG_ExpInfo("kivoexp", "KIVO_ExpInit", 69, "unable to create process iRetCode %d\n", 5);
    std::string longText(1000, 'q');
    LOG_ExpError("kivomain", "f", 1, "%s", longText.c_str());
    std::string err = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(err, "INFO kivoexp KIVO_ExpInit:69 unable to create process iRetCode 5\n"
                   "ERROR kivomain f:1 " + longText + "\n");
}

}  // namespace
