// The working platform in one process: tasks on threads, real sockets in a
// private directory, timers, bounded queues, and what is logged when a
// caller, a callback or a peer does wrong.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <set>
#include <stdexcept>

#include "platform/log.h"
#include "platform/manmsg.h"
#include "platform/mantask.h"
#include "platform/runtime.h"
#include "platform/standin.h"
#include "process_util.h"

namespace {

// Primitives that make the test callbacks misbehave.
constexpr unsigned THROW_STD = 0xEE01, THROW_OTHER = 0xEE02, KEEP = 0xEE03, FREE_TWICE = 0xEE04, HOLD = 0xEE05;

std::mutex g_mu;   // guards all below
std::condition_variable g_cv;
bool g_open = true;                  // a HOLD message keeps its task until this is set
std::vector<std::string> g_got[2];   // what tasks A and B received: "start" or the bytes
std::string g_log;                   // "ERROR platform function: text\n" for each record
void* g_raw = nullptr;               // the last raw message

std::string bytesOf(const CManMessage& m) { return std::string(reinterpret_cast<const char*>(m.data()), m.length()); }

template <int N>
void taskCallback(int event, unsigned primitive, void* raw)
{
    CManMessage m;
    std::unique_lock<std::mutex> lock(g_mu);
    if (event != MAN_EVENT_MESSAGE)
        g_got[N].push_back("start");
    else if (m.Assign(raw) == MAN_OK)
        g_got[N].push_back(bytesOf(m)), g_raw = raw;
    g_cv.notify_all();
    g_cv.wait_for(lock, std::chrono::seconds(30), [&] { return primitive != HOLD || g_open; });
    lock.unlock();   // what follows logs
    if (primitive == THROW_STD)
        throw std::runtime_error("boom");
    if (primitive == THROW_OTHER)
        throw 42;
    if (event == MAN_EVENT_MESSAGE && primitive != KEEP)
        MAN_ExpPFree(raw);
    if (primitive == FREE_TWICE)
        MAN_ExpPFree(raw);
}

template <typename T>
T locked(const T& value)
{
    std::lock_guard<std::mutex> lock(g_mu);
    return value;
}

// What task A (0) or B (1) received, once it is `atLeast` messages.
std::vector<std::string> got(int task, std::size_t atLeast = 0)
{
    std::unique_lock<std::mutex> lock(g_mu);
    g_cv.wait_for(lock, std::chrono::seconds(30), [&] { return g_got[task].size() >= atLeast; });
    return g_got[task];
}

void setOpen(bool open)
{
    std::lock_guard<std::mutex> lock(g_mu);
    g_open = open;
    g_cv.notify_all();
}

class Working : public ::testing::Test {
public:
    void SetUp() override
    {
        g_got[0].clear(), g_got[1].clear(), g_log.clear();
        PLT_SetLogSink([](int level, const char* file, const char* function, int, const char* text) {
            std::lock_guard<std::mutex> lock(g_mu);
            g_log += std::string(level == PLT_LOG_ERROR ? "ERROR " : "INFO ") + file + " " + function + ": " + text + "\n";
        });
        ASSERT_EQ(PLT_SetIpcDir(ipc), MAN_OK);
        PLT_SetTimerUnitUs(100);
        timeval wait{0, 300000};   // how long a pushed-back send waits
        setsockopt(peer, SOL_SOCKET, SO_SNDTIMEO, &wait, sizeof wait);
        ASSERT_EQ(bind(peer, address("peer@Local"), sizeof(sockaddr_un)), 0);
    }
    void TearDown() override
    {
        setOpen(true);
        close(peer);
        PLT_Shutdown();
        PLT_SetQueueLimits(0, 0);
        PLT_SetLogSink(nullptr);
    }

    sockaddr* address(const char* name)
    {
        to.sun_family = AF_UNIX;
        std::snprintf(to.sun_path, sizeof to.sun_path, "%s/%s", ipc.c_str(), name);
        return reinterpret_cast<sockaddr*>(&to);
    }
    // 0 when `bytes` went to task B as one datagram.
    int sendRaw(const std::string& b) { return sendto(peer, b.data(), b.size(), 0, address("B@Local"), sizeof to) > 0 ? 0 : -1; }
    // Tasks A (index 10) and B (index 11).
    void startTwo()
    {
        ASSERT_EQ(MAN_ExpTCreate("A", &TaskIdTbl[10], 0, taskCallback<0>), MAN_OK);
        ASSERT_EQ(MAN_ExpTCreate("B", &TaskIdTbl[11], 0, taskCallback<1>), MAN_OK);
    }
    CManMessage& message(unsigned primitive) { return msg.Create(primitive, 0, 0), msg; }

    TempDir dir;
    const std::string ipc = dir.path() + "/ipc";
    int peer = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);   // outside the platform: sends any bytes
    sockaddr_un to{};
    CManMessage msg;
};

/* Fields are tagged and big-endian; a message arrives whole and after its
 * task's start; a timer keeps its own copy; a datagram leaves from the named
 * task's instance, or else the first task's. */
TEST_F(Working, MessagesArriveWholeFromTheSendersInstance)
{
    startTwo();
    CManMessage& m = message(0x00830002);
    ASSERT_EQ(m.addU32(0x01020304), MAN_OK);
    ASSERT_EQ(m.addString(std::string("{\0\xff", 3)), MAN_OK);
    ASSERT_EQ(m.addString(""), MAN_OK);
    const std::string sent = bytesOf(m);
    EXPECT_EQ(sent, std::string("\0\x83\0\x02\x01\x01\x02\x03\x04\x02\0\0\0\x03{\0\xff\x02\0\0\0\0", 22));
    ASSERT_EQ(cManIO.SendIpc(m, "A@Local", "B@Local"), MAN_OK);
    PLT_Drain();   // waits for the datagram in flight
    EXPECT_EQ(got(1), (std::vector<std::string>{"start", sent}));
    ASSERT_EQ(cManIO.TimerLocal(m, 11, 5), MAN_OK);
    m.Delete();
    EXPECT_EQ(got(1, 3), (std::vector<std::string>{"start", sent, sent}));

    char bytes[8];
    socklen_t length = sizeof to;
    for (const char* source : {"B@Local", "other@Local", static_cast<const char*>(nullptr)}) {
        ASSERT_EQ(cManIO.SendIpc(message(5), source, "peer@Local"), MAN_OK);
        ASSERT_EQ(recvfrom(peer, bytes, sizeof bytes, 0, reinterpret_cast<sockaddr*>(&to), &length), 4);
        EXPECT_EQ(std::string(to.sun_path).substr(ipc.size(), 9), source && *source == 'B' ? "/B@Local." : "/A@Local.");
    }
    EXPECT_EQ(locked(g_log), "");
}

/* A refused call or a peer's bad datagram gives its code and the one record
 * that says why; a callback's mistake is logged; the task goes on. */
struct Mistake {
    const char* name;
    std::function<int(Working&)> call;
    int code;
    std::string log;   // "{raw}" stands for the message's pointer, "{ipc}" for the directory
    bool tasks = true;   // whether tasks A and B run
};
void PrintTo(const Mistake& m, std::ostream* os) { *os << m.name; }

int create(const char* name, int* slot, MAN_TaskCallback callback = taskCallback<0>)
{
    return MAN_ExpTCreate(name, slot, 0, callback);
}

int g_id;
const Mistake kMistakes[] = {
    {"CreateBeyondMaximum", [](Working& w) { return w.msg.Create(1, 0, MAN_MAX_MSG + 1); }, MAN_E_SIZE, ""},
    {"AppendWithoutCreate", [](Working& w) { w.msg.Delete(); return w.msg.addU32(1) + w.msg.addString(""); }, 2 * MAN_E_STATE, ""},
    {"FieldAtMaximum", [](Working& w) { return w.message(1).addString(std::string(MAN_MAX_MSG - 9, 'x')); }, MAN_OK, ""},
    {"FieldBeyondMaximumChangesNothing", [](Working& w) {
         const int code = w.message(1).addString(std::string(MAN_MAX_MSG - 8, 'x'));
         return w.msg.length() == 4 ? code : -1; }, MAN_E_SIZE, ""},
    {"FieldPastFull", [](Working& w) { w.message(1).addString(std::string(MAN_MAX_MSG - 13, 'x'));
        return w.msg.addString("") + w.msg.addU32(1); }, 2 * MAN_E_SIZE, ""},
    {"NameWithSlash", [](Working&) { return create("a/b", &TaskIdTbl[12]); }, MAN_E_FORMAT, ""},
    {"LongName", [](Working&) { return create(std::string(32, 'a').c_str(), &TaskIdTbl[12]); }, MAN_E_FORMAT, ""},
    {"NoCallback", [](Working&) { return create("C", &TaskIdTbl[12], nullptr); }, MAN_E_FORMAT, ""},
    {"IndexTaken", [](Working&) { return create("C", &TaskIdTbl[11]); }, MAN_E_STATE, ""},
    {"NameTaken", [](Working&) { return create("B", &g_id); }, MAN_E_STATE, ""},
    {"IpcDirOthersCanEnter", [](Working& w) { return chmod(w.ipc.c_str(), 0755) + PLT_SetIpcDir(w.ipc); }, MAN_E_IO,
     "setIpcDirLocked: IPC directory {ipc} refused: must be a directory of this user with mode 0700", false},
    {"SendFromNoTask", [](Working& w) { return cManIO.SendIpc(w.message(5), nullptr, "B@Local"); }, MAN_E_NOTASK,
     "SendIpc: no task to send from to B@Local", false},
    {"SendToNobody", [](Working& w) { return cManIO.SendIpc(w.message(5), nullptr, "nobody@Local"); }, MAN_E_IO,
     "SendIpc: send to nobody@Local failed: No such file or directory"},
    {"SendToNoAddress", [](Working& w) { return cManIO.SendIpc(w.message(5), nullptr, "nobody"); }, MAN_E_NOTASK,
     "SendIpc: invalid IPC address nobody"},
    {"LocalToNoTask", [](Working& w) { return cManIO.SendLocal(w.message(5), 12); }, MAN_E_NOTASK, ""},
    {"CallbackThrows", [](Working& w) { return cManIO.SendLocal(w.message(THROW_STD), 11); }, MAN_OK,
     "runCallback: task B: callback threw on event 0 primitive 0x0000ee01: boom"},
    {"CallbackThrowsNoException", [](Working& w) { return cManIO.SendLocal(w.message(THROW_OTHER), 11); }, MAN_OK,
     "runCallback: task B: callback threw on event 0 primitive 0x0000ee02"},
    {"CallbackKeepsMessage", [](Working& w) { return cManIO.SendLocal(w.message(KEEP), 11); }, MAN_OK,
     "deliver: task B did not release message 0x0000ee03"},
    {"CallbackFreesTwice", [](Working& w) { return cManIO.SendLocal(w.message(FREE_TWICE), 11); }, MAN_OK,
     "MAN_ExpPFree: message {raw} released twice, ignored"},
    {"FreeOfAStranger", [](Working&) { MAN_ExpPFree(g_raw = &g_id); return 0; }, MAN_OK,
     "MAN_ExpPFree: message {raw} is not the message being delivered, ignored"},
    {"DatagramTooLong", [](Working& w) { return w.sendRaw(std::string(MAN_MAX_MSG + 1, '\0')); }, MAN_OK,
     "receiveFrom: datagram for B from {ipc}/peer@Local longer than 65536 bytes, dropped"},
    {"DatagramTooShort", [](Working& w) { return w.sendRaw(std::string("\0\0\1", 3)); }, MAN_OK,
     "receiveFrom: datagram for B from {ipc}/peer@Local shorter than 4 bytes, dropped"},
    {"DatagramMalformed", [](Working& w) { return w.sendRaw(std::string("\0\0\0\x66\x07\0\0\0\1", 9)); }, MAN_OK,
     "receiveFrom: datagram for B from {ipc}/peer@Local (9 bytes) malformed, dropped"},
};

class Mistakes : public Working, public ::testing::WithParamInterface<Mistake> {};

TEST_P(Mistakes, AreRefusedWithACodeAndLoggedOnce)
{
    if (GetParam().tasks)
        startTwo();
    EXPECT_EQ(GetParam().call(*this), GetParam().code);
    PLT_Drain();   // the dispatcher logs after the callback returns
    char raw[32];
    std::snprintf(raw, sizeof raw, "%p", locked(g_raw));
    std::string log = GetParam().log.empty() ? "" : "ERROR platform " + GetParam().log + "\n";
    for (const auto& token : {std::make_pair("{raw}", std::string(raw)), std::make_pair("{ipc}", ipc)})
        if (log.find(token.first) != std::string::npos)
            log.replace(log.find(token.first), 5, token.second);
    EXPECT_EQ(locked(g_log), log);
    if (GetParam().tasks) {
        ASSERT_EQ(cManIO.SendLocal(message(0x68), 11), MAN_OK);
        PLT_Drain();
        EXPECT_EQ(got(1).back(), std::string("\0\0\0\x68", 4)) << "task B goes on";
    }
}

const auto byName = [](const auto& info) { return std::string(info.param.name); };
INSTANTIATE_TEST_SUITE_P(Working, Mistakes, ::testing::ValuesIn(kMistakes), byName);

/* A task that does not keep up holds a bounded queue: the rest wait in its
 * socket, and the sender is pushed back. Nothing taken is lost. */
struct Limit {
    const char* name;
    std::size_t messages, bytes;
};
void PrintTo(const Limit& l, std::ostream* os) { *os << l.name; }
class Queue : public Working, public ::testing::WithParamInterface<Limit> {};

TEST_P(Queue, OfABusyTaskIsBoundedAndLosesNothing)
{
    PLT_SetQueueLimits(GetParam().messages, GetParam().bytes);
    setOpen(false);
    startTwo();
    ASSERT_EQ(cManIO.SendLocal(message(HOLD), 11), MAN_OK);
    ASSERT_EQ(message(0x6A).addString(std::string(16 << 10, 'x')), MAN_OK);
    std::size_t accepted = 0;
    while (accepted < 1000 && sendRaw(bytesOf(msg)) == 0)
        accepted++;
    EXPECT_LT(accepted, 100u) << "the sender was pushed back";
    EXPECT_EQ(countOf(locked(g_log), "task B: queue full"), 1u) << "once for the burst";
    setOpen(true);
    EXPECT_EQ(got(1, 2 + accepted).size(), 2 + accepted) << "every datagram taken arrives";
    PLT_Drain();
    EXPECT_EQ(got(1).size(), 2 + accepted);
}

const Limit kLimits[] = {{"InMessages", 4, 1 << 20}, {"InBytes", 1000, 64 << 10}};
INSTANTIATE_TEST_SUITE_P(Working, Queue, ::testing::ValuesIn(kLimits), byName);

/* Short of file descriptors, creating a task fails with a code at whichever
 * step runs out, logs why, and leaves no descriptor behind. */
TEST_F(Working, TaskCreationShortOfDescriptorsFailsWithACode)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers' runtime needs descriptors of its own";
#endif
    rlimit saved, low;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
    const int lowest = dup(2);   // the lowest free descriptor
    close(lowest);
    std::set<int> codes;
    for (int limit = lowest; limit < lowest + 12; limit++) {
        low = {static_cast<rlim_t>(limit), saved.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
        const int code = create("A", &TaskIdTbl[10]);
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &saved), 0);
        codes.insert(code);
        EXPECT_EQ(locked(g_log).empty(), code == MAN_OK) << limit << ": " << code << " " << locked(g_log);
        PLT_Shutdown();
        g_log.clear();
        const int next = dup(2);
        EXPECT_EQ(next, lowest) << "descriptors left behind at limit " << limit;
        close(next);
        ASSERT_EQ(PLT_SetIpcDir(ipc), MAN_OK);
    }
    EXPECT_EQ(codes, (std::set<int>{MAN_OK, MAN_E_IO})) << "some limits fail it, the highest does not";
}

TEST_F(Working, LogRecordsAreWholeLinesWithControlBytesShown)
{
    PLT_SetLogSink(nullptr);
    ::testing::internal::CaptureStderr();
    LOG_ExpInfo("kivoexp", "KIVO_ExpInit", 69, "unable to create process iRetCode %d\n", 5);
    LOG_ExpError("kivomain", "f", 1, "%s", std::string(1000, 'q').c_str());
    /* Control bytes from outside (C1 raw or in UTF-8) are shown, not obeyed;
     * letters in UTF-8 or ISO-8859-1 stay. */
    LOG_ExpError("webconfd", "g", 2, "%s", "a\r\n\x1b]0;x\x07 \x9b\xC2\x9b \xC3\xB6\xF6 \x7f");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "INFO kivoexp KIVO_ExpInit:69 unable to create process iRetCode 5\nERROR kivomain f:1 " +
                  std::string(1000, 'q') + "\nERROR webconfd g:2 a\\x0D\\x0A\\x1B]0;x\\x07 \\x9B\\xC2\\x9B \xC3\xB6\xF6 \\x7F\n");
}

}  // namespace
