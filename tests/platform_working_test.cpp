// The working platform over real threads and sockets, in a private directory.
#include <gtest/gtest.h>

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
#include "platform/standin.h"
#include "process_util.h"

namespace {

// Primitives that make the test callbacks misbehave.
constexpr unsigned THROW_STD = 0xEE01, THROW_OTHER = 0xEE02, KEEP = 0xEE03, FREE_TWICE = 0xEE04, HOLD = 0xEE05;

// A HOLD message keeps its task's callback until the gate opens.
struct Gate {
    std::mutex mu;
    std::condition_variable cv;
    bool open = true;
    void wait()
    {
        std::unique_lock<std::mutex> lock(mu);
        cv.wait_for(lock, std::chrono::seconds(30), [&] { return open; });
    }
    void set(bool o)
    {
        {
            std::lock_guard<std::mutex> lock(mu);
            open = o;
        }
        cv.notify_all();
    }
} g_gate;

struct Got {
    int event;
    unsigned primitive;
    std::string bytes;
    std::string source;
};

// What the tasks A (inbox 0) and B (inbox 1) received.
struct Inbox {
    std::mutex mu;
    std::condition_variable cv;
    std::vector<Got> got;
    bool waitFor(std::size_t n)
    {
        std::unique_lock<std::mutex> lock(mu);
        return cv.wait_for(lock, std::chrono::seconds(30), [&] { return got.size() >= n; });
    }
    std::vector<Got> snapshot()
    {
        std::lock_guard<std::mutex> lock(mu);
        return got;
    }
} g_inbox[2];

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
    if (primitive == HOLD)
        g_gate.wait();
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

std::string bytesOf(const CManMessage& m)
{
    return std::string(reinterpret_cast<const char*>(m.data()), m.length());
}

class Working : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (Inbox& box : g_inbox)
            box.got.clear();
        g_log.clear();
        PLT_SetLogSink([](int level, const char* file, const char*, int, const char* text) {
            std::lock_guard<std::mutex> lock(g_logMu);
            g_log.push_back({level, file, text});
        });
        ASSERT_EQ(PLT_SetIpcDir(ipc), MAN_OK);
        PLT_SetTimerUnitUs(100);
    }

    void TearDown() override
    {
        g_gate.set(true);
        PLT_Shutdown();
        PLT_SetQueueLimits(0, 0);
        PLT_SetLogSink(nullptr);
    }

    // Creates tasks A (index 10) and B (index 11) and waits for their start.
    void startTwo()
    {
        ASSERT_EQ(MAN_ExpTCreate("A", &TaskIdTbl[10], 0, taskCallback<0>), MAN_OK);
        ASSERT_EQ(MAN_ExpTCreate("B", &TaskIdTbl[11], 0, taskCallback<1>), MAN_OK);
        ASSERT_TRUE(g_inbox[0].waitFor(1) && g_inbox[1].waitFor(1));
    }

    CManMessage& message(unsigned primitive)
    {
        msg.Create(primitive, 0, 0);
        return msg;
    }

    TempDir dir;
    const std::string ipc = dir.path() + "/ipc";
    CManMessage msg;
};

/* ---- tasks and delivery ------------------------------------------------- */

TEST_F(Working, TaskCreationIsValidatedAndStartComesBeforeAnyMessage)
{
    EXPECT_EQ(MAN_ExpTCreate("a/b", &TaskIdTbl[10], 0, taskCallback<0>), MAN_E_FORMAT);
    EXPECT_EQ(MAN_ExpTCreate(std::string(32, 'a').c_str(), &TaskIdTbl[10], 0, taskCallback<0>), MAN_E_FORMAT);
    EXPECT_EQ(MAN_ExpTCreate("A", &TaskIdTbl[10], 0, nullptr), MAN_E_FORMAT);
    ASSERT_EQ(MAN_ExpTCreate("A", &TaskIdTbl[10], 0, taskCallback<0>), MAN_OK);
    EXPECT_NE(TaskIdTbl[10], 0);
    ASSERT_EQ(cManIO.SendLocal(message(0x77), 10), MAN_OK);
    EXPECT_EQ(MAN_ExpTCreate("B", &TaskIdTbl[10], 0, taskCallback<1>), MAN_E_STATE);
    int id = 0;
    EXPECT_EQ(MAN_ExpTCreate("A", &id, 0, taskCallback<1>), MAN_E_STATE);
    EXPECT_EQ(PLT_SetIpcDir(ipc), MAN_E_STATE) << "only before the first task";

    ASSERT_TRUE(g_inbox[0].waitFor(2));
    const std::vector<Got> got = g_inbox[0].snapshot();
    EXPECT_EQ(got[0].event, MAN_EVENT_CONTROL);
    EXPECT_EQ(got[0].primitive, static_cast<unsigned>(MAN_PRIM_START));
    EXPECT_EQ(got[1].event, MAN_EVENT_MESSAGE);
    EXPECT_EQ(got[1].primitive, 0x77u);
}

TEST_F(Working, TimerAndIpcDeliverTheBytesAndTheSender)
{
    startTwo();
    CManMessage& m = message(0x00830002);
    ASSERT_EQ(m.addU32(7), MAN_OK);
    ASSERT_EQ(m.addString(std::string("{\"a\":\0\xff}", 8)), MAN_OK);
    const std::string sent = bytesOf(m);
    ASSERT_EQ(cManIO.SendIpc(m, "A@Local", "B@Local"), MAN_OK);
    ASSERT_TRUE(g_inbox[1].waitFor(2));
    EXPECT_EQ(g_inbox[1].snapshot()[1].primitive, 0x00830002u);
    EXPECT_EQ(g_inbox[1].snapshot()[1].bytes, sent);
    const std::string source = g_inbox[1].snapshot()[1].source;
    EXPECT_EQ(source.substr(0, 8), "A@Local.") << "a server answers the sender's own instance";
    ASSERT_EQ(cManIO.SendIpc(m, "B@Local", source.c_str()), MAN_OK);
    ASSERT_TRUE(g_inbox[0].waitFor(2));

    ASSERT_EQ(cManIO.TimerLocal(m, 11, 5), MAN_OK);
    EXPECT_EQ(cManIO.TimerLocal(m, 12, 1), MAN_E_NOTASK);
    m.Delete();   // the timer keeps its own copy
    ASSERT_TRUE(g_inbox[1].waitFor(3));
    EXPECT_EQ(g_inbox[1].snapshot()[2].bytes, sent);
}

TEST_F(Working, DrainWaitsForDatagramsInFlight)
{
    startTwo();
    for (int i = 0; i < 8; i++)
        ASSERT_EQ(cManIO.SendIpc(message(0x69), "A@Local", "B@Local"), MAN_OK);
    PLT_Drain();
    EXPECT_EQ(g_inbox[1].snapshot().size(), 9u);
}

TEST_F(Working, DatagramLeavesFromTheSourceOrTheFirstTask)
{
    startTwo();
    Peer peer(ipc, "peer@Local");
    std::string from;
    ASSERT_EQ(cManIO.SendIpc(message(5), "B@Local", "peer@Local"), MAN_OK);
    EXPECT_EQ(peer.receive(&from), std::string("\0\0\0\5", 4));
    EXPECT_EQ(from.substr(0, ipc.size() + 9), ipc + "/B@Local.");
    for (const char* unknownSource : {"other@Local", static_cast<const char*>(nullptr)}) {
        ASSERT_EQ(cManIO.SendIpc(msg, unknownSource, "peer@Local"), MAN_OK);
        peer.receive(&from);
        EXPECT_EQ(from.substr(0, ipc.size() + 9), ipc + "/A@Local.");
    }
}

/* ---- failures ----------------------------------------------------------- */

TEST_F(Working, SendIpcFailuresAreReportedAndLogged)
{
    EXPECT_EQ(cManIO.SendIpc(message(5), nullptr, "B@Local"), MAN_E_NOTASK) << "no task to send from";
    startTwo();
    EXPECT_EQ(cManIO.SendIpc(msg, nullptr, "nobody@Local"), MAN_E_IO);
    EXPECT_EQ(errorsWith({"nobody@Local"}), 1);
    EXPECT_EQ(cManIO.SendIpc(msg, nullptr, "nobody"), MAN_E_NOTASK);
    EXPECT_EQ(errorsWith({"nobody"}), 2);
    CManMessage empty;
    EXPECT_EQ(cManIO.SendIpc(empty, nullptr, "B@Local"), MAN_E_STATE);
}

TEST_F(Working, BadDatagramsAreLoggedAndDropped)
{
    startTwo();
    Peer peer(ipc, "peer@Local");
    const std::string unknownTag("\0\0\0\x66\x07\0\0\0\1", 9);
    for (const std::string& bytes : {std::string(MAN_MAX_MSG + 1, '\0'), std::string("\0\0\1", 3), unknownTag,
                                     bytesOf(message(0x67))})
        ASSERT_TRUE(peer.send("B@Local", bytes));
    ASSERT_TRUE(g_inbox[1].waitFor(2));
    PLT_Drain();
    const std::vector<Got> got = g_inbox[1].snapshot();
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[1].primitive, 0x67u);
    EXPECT_EQ(errorsWith({"longer than", "peer@Local"}), 1);
    EXPECT_EQ(errorsWith({"shorter than"}), 1);
    EXPECT_EQ(errorsWith({"malformed"}), 1);
    std::lock_guard<std::mutex> lock(g_logMu);
    for (const Record& r : g_log)
        EXPECT_EQ(r.file, "platform");
}

/* A task that does not keep up holds a bounded queue: the rest wait in its
 * socket, and the sender is pushed back. Nothing taken is lost. */
TEST_F(Working, QueueOfABusyTaskIsBoundedInMessagesAndBytes)
{
    struct Limits {
        std::size_t messages, bytes;
    };
    for (const Limits limits : {Limits{4, 1 << 20}, Limits{1000, 64 << 10}}) {
        PLT_SetQueueLimits(limits.messages, limits.bytes);
        startTwo();
        g_gate.set(false);
        ASSERT_EQ(cManIO.SendLocal(message(HOLD), 11), MAN_OK);
        ASSERT_TRUE(g_inbox[1].waitFor(2));

        const int sender = socket(AF_UNIX, SOCK_DGRAM, 0);
        timeval wait{0, 300000};   // how long a pushed-back send waits
        setsockopt(sender, SOL_SOCKET, SO_SNDTIMEO, &wait, sizeof wait);
        sockaddr_un to{};
        to.sun_family = AF_UNIX;
        std::snprintf(to.sun_path, sizeof to.sun_path, "%s/B@Local", ipc.c_str());
        const std::string datagram = Peer::message(0x6A, std::string(16 << 10, 'x'));
        int accepted = 0;
        while (accepted < 1000 && sendto(sender, datagram.data(), datagram.size(), 0,
                                         reinterpret_cast<sockaddr*>(&to), sizeof to) > 0)
            accepted++;
        close(sender);
        EXPECT_LT(accepted, 100) << "the sender was pushed back";
        EXPECT_EQ(errorsWith({"task B: queue full"}), 1) << "once for the burst";

        g_gate.set(true);
        EXPECT_TRUE(g_inbox[1].waitFor(2 + static_cast<std::size_t>(accepted))) << "every datagram taken arrives";
        PLT_Drain();
        EXPECT_EQ(g_inbox[1].snapshot().size(), 2 + static_cast<std::size_t>(accepted));
        PLT_Shutdown();
        g_inbox[0].got.clear();
        g_inbox[1].got.clear();
        g_log.clear();
        ASSERT_EQ(PLT_SetIpcDir(ipc), MAN_OK);
    }
}

TEST_F(Working, CallbackMistakesAreLoggedAndTaskGoesOn)
{
    startTwo();
    for (unsigned primitive : {THROW_STD, THROW_OTHER, KEEP, FREE_TWICE, 0x68u})
        ASSERT_EQ(cManIO.SendLocal(message(primitive), 11), MAN_OK);
    ASSERT_TRUE(g_inbox[1].waitFor(6));
    PLT_Drain();   // the dispatcher logs after the callback returns
    EXPECT_EQ(g_inbox[1].snapshot()[5].primitive, 0x68u);
    EXPECT_EQ(errorsWith({"task B", "boom"}), 1);
    EXPECT_EQ(errorsWith({"task B", "0x0000ee02"}), 1);
    EXPECT_EQ(errorsWith({"task B", "did not release", "0x0000ee03"}), 1);
    EXPECT_EQ(errorsWith({"released twice"}), 1);
    int notMine = 0;
    MAN_ExpPFree(&notMine);
    EXPECT_EQ(errorsWith({"not the message being delivered"}), 1);
}

TEST_F(Working, IpcDirectoryMustBePrivate)
{
    struct stat st;
    ASSERT_EQ(::stat(ipc.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);
    ASSERT_EQ(::chmod(ipc.c_str(), 0755), 0);
    EXPECT_EQ(PLT_SetIpcDir(ipc), MAN_E_IO);
}

/* ---- terminal and log --------------------------------------------------- */

int g_lines = 0;
std::string g_terminal;

TEST_F(Working, TerminalEntersAndLeavesConsoles)
{
    g_lines = 0;
    g_terminal.clear();
    PLT_SetTerminalSink([](const char* bytes, std::size_t length) { g_terminal.append(bytes, length); });
    auto interpreter = [](const char* line) {
        g_lines++;
        if (std::strcmp(line, "exit") == 0)
            DTM_ExpReturn();
        return 7;
    };
    ASSERT_EQ(DTM_ExpRegister("kivo", "test console", interpreter), MAN_OK);
    EXPECT_EQ(DTM_ExpRegister("kivo", "again", interpreter), MAN_E_STATE);
    EXPECT_EQ(PLT_TerminalLine("nosuch"), 0);
    EXPECT_EQ(g_terminal, "unknown console: nosuch\n");
    EXPECT_EQ(PLT_TerminalLine("  kivo \n"), 0);
    EXPECT_EQ(PLT_CurrentConsole(), "kivo");
    EXPECT_EQ(PLT_TerminalLine("kivo"), 7);   // inside, even its own name goes to it
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
    const std::string longText(1000, 'q');
    LOG_ExpError("kivomain", "f", 1, "%s", longText.c_str());
    /* Control bytes from outside (C1 raw or in UTF-8) are shown, not obeyed;
     * letters in UTF-8 or ISO-8859-1 stay. */
    LOG_ExpError("webconfd", "g", 2, "%s", "a\r\n\x1b]0;x\x07 \x9b\xC2\x9b \xC3\xB6\xF6 \x7f");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "INFO kivoexp KIVO_ExpInit:69 unable to create process iRetCode 5\n"
              "ERROR kivomain f:1 " + longText + "\n"
              "ERROR webconfd g:2 a\\x0D\\x0A\\x1B]0;x\\x07 \\x9B\\xC2\\x9B \xC3\xB6\xF6 \\x7F\n");
}

}  // namespace
