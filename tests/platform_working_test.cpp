// The working platform in one process, its sockets in a private directory:
// bounded queues, and what is logged when a caller, callback or peer errs.
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
std::vector<std::string> g_got;      // the messages that task B received
std::string g_log;                   // "ERROR platform function: text\n" for each record
void* g_raw = nullptr;               // the last raw message

std::string bytesOf(const CManMessage& m)
{
    return std::string(reinterpret_cast<const char*>(Platform::data(m)), Platform::length(m));
}

void taskCallback(int event, unsigned primitive, void* raw)
{
    CManMessage m;
    std::unique_lock<std::mutex> lock(g_mu);
    if (event == MAN_EVENT_MESSAGE && m.Assign(raw) == MAN_OK)
        g_got.push_back(bytesOf(m)), g_raw = raw;
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

// Runs `f` under the lock once `ready` holds, or 30 s have passed.
template <typename F>
auto locked(F f, std::function<bool()> ready = [] { return true; })
{
    std::unique_lock<std::mutex> lock(g_mu);
    g_cv.wait_for(lock, std::chrono::seconds(30), ready);
    g_cv.notify_all();
    return f();
}
// What task B received, once it is `atLeast` messages.
std::vector<std::string> got(std::size_t atLeast = 0)
{
    return locked([] { return g_got; }, [=] { return g_got.size() >= atLeast; });
}

/* A datagram socket, and in `at` the address of `name` in the directory `ipc`. */
int datagramSocket(const std::string& ipc, const std::string& name, sockaddr_un& at)
{
    at = {AF_UNIX, ""};
    std::snprintf(at.sun_path, sizeof at.sun_path, "%s/%s", ipc.c_str(), name.c_str());
    return socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

class Working : public ::testing::Test {
public:
    void SetUp() override
    {
        g_got.clear(), g_log.clear();
        PLT_SetLogSink([](int level, const char* file, const char* function, int, const char* text) {
            const std::string record = std::string(level == PLT_LOG_ERROR ? "ERROR " : "INFO ") + file + " " + function;
            locked([&] { return g_log += record + ": " + text + "\n"; });
        });
        ASSERT_EQ(PLT_SetIpcDir(ipc), MAN_OK);
    }
    void TearDown() override
    {
        locked([] { return g_open = true; });
        PLT_Shutdown();
        PLT_SetQueueLimits(0, 0);
        PLT_SetLogSink(nullptr);
    }

    // 0 when `bytes` went to task B as one datagram from outside the platform.
    int sendRaw(const std::string& bytes)
    {
        sockaddr_un to;
        const int fd = datagramSocket(ipc, "B@Local", to);
        timeval wait{0, 300000};   // how long a pushed-back send waits
        setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &wait, sizeof wait);
        const ssize_t n = sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
        close(fd);
        return n > 0 ? 0 : -1;
    }
    /* Sends without waiting, until a send is not taken, to a socket bound at
     * `name` that never reads; when `gone`, closed at once, its file left
     * behind as a killed peer leaves it. The code of the last send. */
    int sendToPeer(const char* name, bool gone)
    {
        sockaddr_un at;
        const int fd = datagramSocket(ipc, name, at);
        EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&at), sizeof at), 0);
        if (gone)
            close(fd);
        PLT_SetSendBlocking(false);
        int code = MAN_OK;
        for (int i = 0; i < 10000 && code == MAN_OK; i++)
            code = PLT_SendIpc(message(5), nullptr, name);
        PLT_SetSendBlocking(true);
        if (!gone)
            close(fd);
        return code;
    }
    void startB() { ASSERT_EQ(MAN_ExpTCreate("B", &TaskIdTbl[11], 0, taskCallback), MAN_OK); }
    CManMessage& message(unsigned primitive) { return msg.Create(primitive, 0, 0), msg; }

    TempDir dir;
    const std::string ipc = dir.path() + "/ipc";
    CManMessage msg;
};

/* A refused call or a peer's bad datagram gives its code and the one record
 * that says why; a callback's mistake is logged; the task goes on, and the
 * next message reaches it whole: tagged fields, big-endian. */
struct Mistake {
    const char* name;
    std::function<int(Working&)> call;
    int code;
    std::string log = "";   // "{raw}" stands for the message's pointer, "{ipc}" for the directory
    bool tasks = true;      // whether task B runs
};
void PrintTo(const Mistake& m, std::ostream* os) { *os << m.name; }

#define CALL(...) [](Working & w) { return (void)w, __VA_ARGS__; }
const Mistake kMistakes[] = {
    {"CreateBeyondMaximum", CALL(w.msg.Create(1, 0, MAN_MAX_MSG + 1)), MAN_E_SIZE},
    {"FieldAtMaximum", CALL(Platform::addString(w.message(1), std::string(MAN_MAX_MSG - 9, 'x'))), 0},
    {"FieldBeyondMaximumChangesNothing", [](Working& w) {
         const int code = Platform::addString(w.message(1), std::string(MAN_MAX_MSG - 8, 'x'));
         return Platform::length(w.msg) == 4 ? code : -1; }, MAN_E_SIZE},
    {"NameWithSlash", CALL(MAN_ExpTCreate("a/b", &TaskIdTbl[12], 0, taskCallback)), MAN_E_FORMAT},
    {"IndexTaken", CALL(MAN_ExpTCreate("C", &TaskIdTbl[11], 0, taskCallback)), MAN_E_STATE},
    {"NameTaken", CALL(MAN_ExpTCreate("B", &TaskIdTbl[12], 0, taskCallback)), MAN_E_STATE},
    {"IpcDirLongButShortOnceResolved", CALL(PLT_SetIpcDir(w.ipc + std::string(60, '/') + ".")), MAN_OK, "", false},
    {"IpcDirTooLongOnceResolved", CALL(PLT_SetIpcDir(w.ipc + "/" + std::string(56, 'd'))), MAN_E_SIZE,
     "setIpcDirLocked: IPC directory {long} refused: it is {long}, longer than the 56 bytes a socket "
     "address leaves for it", false},
    {"IpcDirEmpty", CALL(PLT_SetIpcDir("")), MAN_E_SIZE, "setIpcDirLocked: IPC directory of 0 bytes refused: no path",
     false},
    {"IpcDirOthersCanEnter", CALL(chmod(w.ipc.c_str(), 0755) + PLT_SetIpcDir(w.ipc)), MAN_E_IO,
     "setIpcDirLocked: IPC directory {ipc} refused: must be a directory of this user with mode 0700", false},
    {"SendToNoAddress", CALL(PLT_SendIpc(w.message(5), nullptr, "nobody")), MAN_E_NOTASK,
     "SendIpc: invalid IPC address nobody"},
    {"SendToAFullQueueWithoutWaiting", CALL(w.sendToPeer("frozen@Local", false)), MAN_E_FULL},
    {"SendToAGonePeer", CALL(w.sendToPeer("gone@Local", true)), MAN_E_NOTASK,
     "SendIpc: send to gone@Local failed: Connection refused"},
    {"LocalToNoTask", CALL(PLT_SendLocal(w.message(5), 12)), MAN_E_NOTASK},
    {"CallbackThrows", CALL(PLT_SendLocal(w.message(THROW_STD), 11)), MAN_OK,
     "runCallback: task B: callback threw on event 0 primitive 0x0000ee01: boom"},
    {"CallbackThrowsNoException", CALL(PLT_SendLocal(w.message(THROW_OTHER), 11)), MAN_OK,
     "runCallback: task B: callback threw on event 0 primitive 0x0000ee02"},
    {"CallbackKeepsMessage", CALL(PLT_SendLocal(w.message(KEEP), 11)), MAN_OK,
     "deliver: task B did not release message 0x0000ee03"},
    {"CallbackFreesTwice", CALL(PLT_SendLocal(w.message(FREE_TWICE), 11)), MAN_OK,
     "MAN_ExpPFree: message {raw} released twice, ignored"},
    {"DatagramTooLong", CALL(w.sendRaw(std::string(MAN_MAX_MSG + 1, '\0'))), MAN_OK,
     "receiveFrom: datagram for B from (unbound) longer than 65536 bytes, dropped"},
    {"DatagramTooShort", CALL(w.sendRaw(std::string("\0\0\1", 3))), MAN_OK,
     "receiveFrom: datagram for B from (unbound) shorter than 4 bytes, dropped"},
    {"DatagramMalformed", CALL(w.sendRaw(std::string("\0\0\0\x66\x07\0\0\0\1", 9))), MAN_OK,
     "receiveFrom: datagram for B from (unbound) (9 bytes) malformed, dropped"},
};

class Mistakes : public Working, public ::testing::WithParamInterface<Mistake> {};

TEST_P(Mistakes, AreRefusedWithACodeAndLoggedOnce)
{
    if (GetParam().tasks)
        startB();
    EXPECT_EQ(GetParam().call(*this), GetParam().code);
    PLT_Drain();   // the dispatcher logs after the callback returns
    char raw[32];
    std::snprintf(raw, sizeof raw, "%p", locked([] { return g_raw; }));
    std::string log = GetParam().log.empty() ? "" : "ERROR platform " + GetParam().log + "\n";
    const std::pair<std::string, std::string> tokens[] = {
        {"{raw}", raw}, {"{long}", ipc + "/" + std::string(56, 'd')}, {"{ipc}", ipc}};
    for (const auto& token : tokens)
        for (std::size_t at; (at = log.find(token.first)) != std::string::npos;)
            log.replace(at, token.first.size(), token.second);
    EXPECT_EQ(locked([] { return g_log; }), log);
    if (GetParam().tasks) {
        CManMessage& m = message(0x00830002);
        ASSERT_EQ(Platform::addU32(m, 0x01020304), MAN_OK);
        ASSERT_EQ(Platform::addString(m, std::string("{\0\xff", 3)), MAN_OK);
        ASSERT_EQ(PLT_SendIpc(m, nullptr, "B@Local"), MAN_OK);
        PLT_Drain();   // waits for the datagram in flight
        EXPECT_EQ(got().back(), std::string("\0\x83\0\x02\x01\x01\x02\x03\x04\x02\0\0\0\x03{\0\xff", 17));
    }
}

const auto byName = [](const auto& info) { return std::string(info.param.name); };
INSTANTIATE_TEST_SUITE_P(Working, Mistakes, ::testing::ValuesIn(kMistakes), byName);

/* A task that does not keep up holds a bounded queue: the rest wait in its
 * socket, and the sender is pushed back. Nothing taken is lost. */
struct Limit { const char* name; std::size_t messages, bytes; };
class Queue : public Working, public ::testing::WithParamInterface<Limit> {};

TEST_P(Queue, OfABusyTaskIsBoundedAndLosesNothing)
{
    PLT_SetQueueLimits(GetParam().messages, GetParam().bytes);
    locked([] { return g_open = false; });
    startB();
    ASSERT_EQ(PLT_SendLocal(message(HOLD), 11), MAN_OK);
    ASSERT_EQ(Platform::addString(message(0x6A), std::string(16 << 10, 'x')), MAN_OK);
    std::size_t accepted = 0;
    while (accepted < 1000 && sendRaw(bytesOf(msg)) == 0)
        accepted++;
    EXPECT_LT(accepted, 100u) << "the sender was pushed back";
    EXPECT_EQ(locked([] { return g_log; }), "ERROR platform roomInQueue: task B: queue full (4 messages, 65572 bytes), "
                                            "further datagrams wait in its socket (burst 1)\n") << "once for the burst";
    locked([] { return g_open = true; });
    got(1 + accepted);
    PLT_Drain();
    EXPECT_EQ(got().size(), 1 + accepted) << "every datagram taken arrives, once";
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
        const int code = MAN_ExpTCreate("B", &TaskIdTbl[11], 0, taskCallback);
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &saved), 0);
        codes.insert(code);
        EXPECT_EQ(locked([] { return g_log; }).empty(), code == MAN_OK) << "limit " << limit << ", code " << code;
        PLT_Shutdown();
        locked([] { return g_log.clear(), 0; });
        const int next = dup(2);
        EXPECT_EQ(next, lowest) << "descriptors left behind at limit " << limit;
        close(next);
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
                  std::string(1000, 'q') +
                  "\nERROR webconfd g:2 a\\x0D\\x0A\\x1B]0;x\\x07 \\x9B\\xC2\\x9B \xC3\xB6\xF6 \\x7F\n");
}

}  // namespace
