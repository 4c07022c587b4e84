/*
 * Concurrency stress: the module on the working platform, with its real
 * kivo task thread and real timers, against a scripted daemon task that
 * answers over a real socket in a private directory. Caller threads search
 * and change at once, a console thread types test searches and switches
 * traces, another flips the interface switch; the daemon answers, repeats,
 * answers late or not at all, and short query timers end what stays open.
 *
 * Every search must end exactly once and receive nothing after its end, the
 * table must end empty, every client must be released, every config-change
 * notice must reach the cache task, and no message may be mishandled.
 * CI runs it under ThreadSanitizer (label "stress"). Counts are bounded;
 * waits are bounded and never part of what is checked.
 */
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <boost/shared_ptr.hpp>
#include <gtest/gtest.h>
#include <json/json.h>

#include "module_support.h"

#include "kivo.h"
#include "kivoglob.h"
#include "pbbackend.h"
#include "platform/log.h"
#include "platform/manmsg.h"
#include "platform/mantask.h"
#include "platform/runtime.h"
#include "platform/standin.h"

using namespace ZEMBRA::Phonebook;

namespace {

constexpr int kCallers = 4;
constexpr int kOpsPerCaller = 400;
constexpr int kConsoleLines = 60;
/* 5000 timer units of 4 us: query timers of 20 ms expire while the callers
 * are still at work. */
constexpr unsigned int kTimerUnitUs = 4;
/* Upper bound for the whole run to settle; reaching it means a search was
 * lost, not that the machine was slow. */
constexpr auto kSettle = std::chrono::seconds(120);

constexpr int kPeerTask = 71;
constexpr unsigned int kPrimFlush = 0x00AA0001;
/* Ids the module never hands out in this test: config changes for them must
 * each bring one cache-clear notice. */
constexpr unsigned int kForeignId = 0xF0000000u;

std::atomic<int> started{0};
std::atomic<int> ended{0};
std::atomic<int> faults{0};     /* a second end, or a delivery after the end */
std::atomic<int> alive{0};
std::atomic<int> notices{0};    /* cache-clear notices received */
std::atomic<int> noticesDue{0}; /* config changes sent for foreign ids */
std::atomic<int> badMessages{0};
std::mutex endMu;
std::condition_variable endCv;

std::mutex followMu;
std::vector<boost::shared_ptr<AbstractQueryClient>> followUps;

class StressClient : public AbstractQueryClient {
public:
    StressClient(QueryMode mode, const Json::Value& value, bool bestMatch, bool startsFollowUp)
        : followUp_(startsFollowUp)
    {
        parameters.mode = mode;
        parameters.value = value;
        parameters.size = 100;
        bestMatchOnly = bestMatch;
        alive++;
    }
    ~StressClient() override { alive--; }

    void requestFinished() override
    {
        if (finished_.fetch_add(1) != 0) {
            faults++;
            return;
        }
        /* A client may search again from inside its end (kivo task). */
        if (followUp_)
            startFollowUp();
        {
            std::lock_guard<std::mutex> lock(endMu);
            ended++;
        }
        endCv.notify_all();
    }
    void addContact(const Contact&, CacheInfo) override { delivery(); }
    void addContact(const Contact&, CacheInfo, const std::string&, int) override { delivery(); }
    void addEvent(const Event&, CacheInfo) override { delivery(); }
    void addFolder(const Folder&, CacheInfo) override { delivery(); }

    int finishedCount() const { return finished_.load(); }

private:
    void delivery()
    {
        if (finished_.load() != 0)
            faults++;
    }
    static void startFollowUp()
    {
        boost::shared_ptr<AbstractQueryClient> client(new StressClient(Number, Json::Value("0711"), false, false));
        {
            std::lock_guard<std::mutex> lock(followMu);
            followUps.push_back(client);
        }
        started++;
        KIVO_ExpQuery(client, Manager::SearchBackends);
    }

    const bool followUp_;
    std::atomic<int> finished_{0};
};

/* ---- the scripted daemon (its own task, one message at a time) ---------- */

struct Deferred {
    std::string text;
    std::string to;
};

std::mt19937 peerRng(7);                /* peer task only */
std::vector<Deferred> soonReplies;      /* peer task only */
std::vector<Deferred> lateReplies;      /* peer task only */
int peerRequests = 0;                   /* peer task only */


/* False when the datagram could not be sent (a full socket for a second). */
bool sendReply(const std::string& to, const std::string& text)
{
    CManMessage msg;
    if (msg.Create(KIVO_PRIM_RESULT, 0, static_cast<int>(text.size())) != MAN_OK || msg.addString(text) != MAN_OK)
        return false;
    const bool sent = cManIO.SendIpc(msg, "webconfd@Local", to.c_str()) == MAN_OK;
    msg.Delete();
    return sent;
}

Json::Value someContacts(int n)
{
    Json::Value items(Json::arrayValue);
    for (int i = 0; i < n; i++) {
        Json::Value c;
        c["uid"] = "uid-" + std::to_string(i);
        c["lastName"] = "Wefer";
        Json::Value number;
        number["number"] = "0711";
        number["text3"] = std::string(static_cast<std::size_t>(i + 1), '9');
        c["numbers"].append(number);
        items.append(c);
    }
    return items;
}

void answer(const std::string& to, unsigned int id, bool search)
{
    const int endType = search ? Contacts : Acknowledge;
    const Json::Value none(Json::arrayValue);
    switch (peerRng() % 8) {
    case 0:   /* records, then the end */
        if (search)
            sendReply(to, replyText(id, Contacts, 2, someContacts(2)));
        sendReply(to, replyText(id, endType, 2, none));
        break;
    case 1:   /* the end, twice */
        sendReply(to, replyText(id, endType, 0, none));
        sendReply(to, replyText(id, endType, 0, none));
        break;
    case 2:   /* silence: the timer ends it */
        break;
    case 3:   /* records, then silence */
        if (search)
            sendReply(to, replyText(id, Contacts, 3, someContacts(1)));
        break;
    case 4:   /* repeated records, an acknowledgement, and the end again */
        if (search) {
            sendReply(to, replyText(id, Contacts, 4, someContacts(2)));
            sendReply(to, replyText(id, Contacts, 4, someContacts(2)));
        }
        sendReply(to, replyText(id, Acknowledge, 0, none));
        sendReply(to, replyText(id, endType, 0, none));
        break;
    case 5:   /* answered a few requests later: before or after its timer */
        soonReplies.push_back({replyText(id, endType, 0, none), to});
        break;
    case 6:   /* answered only once everything has ended: surely late */
        lateReplies.push_back({replyText(id, endType, 0, none), to});
        break;
    default:  /* a config change for an id nobody uses, then the end */
        if (sendReply(to, replyText(kForeignId + id, ConfigChanged, 0, none)))
            noticesDue++;
        sendReply(to, replyText(id, endType, 0, none));
        break;
    }
}

void peerTask(int event, unsigned int primitive, void* raw)
{
    if (event != MAN_EVENT_MESSAGE)
        return;
    if (primitive == kPrimFlush) {
        MAN_ExpPFree(raw);
        for (const Deferred& d : soonReplies)
            sendReply(d.to, d.text);
        for (const Deferred& d : lateReplies)
            sendReply(d.to, d.text);
        soonReplies.clear();
        lateReplies.clear();
        return;
    }
    CManMessage msg;
    std::string text;
    std::string from;
    if (msg.Assign(raw) == MAN_OK) {
        text = msg.getString();
        from = PLT_MessageSource(raw);
    }
    MAN_ExpPFree(raw);
    Json::Value request;
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    if (msg.readFailed() || from.empty() ||
        !reader->parse(text.data(), text.data() + text.size(), &request, nullptr) || !request.isObject()) {
        badMessages++;
        return;
    }
    answer(from, request["queryId"].asUInt(), primitive != KIVO_PRIM_CHANGE);
    if (++peerRequests % 5 == 0) {
        for (const Deferred& d : soonReplies)
            sendReply(d.to, d.text);
        soonReplies.clear();
    }
}

/* Stand-in for the service that caches the phonebook's configuration. */
void cacheTask(int event, unsigned int primitive, void* raw)
{
    if (event != MAN_EVENT_MESSAGE)
        return;
    if (primitive == KIVO_PRIM_CACHE_CLEAR)
        notices++;
    MAN_ExpPFree(raw);
}

/* The platform reports a mishandled message as an error record. */
void logSink(int level, const char*, const char*, int, const char* text)
{
    if (level == PLT_LOG_ERROR && (std::strstr(text, "release") != nullptr ||
                                   std::strstr(text, "not the message being delivered") != nullptr))
        badMessages++;
}

void quietTerminal(const char*, std::size_t) {}

class StressTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        char dirTemplate[] = "/tmp/kivo-stress-XXXXXX";
        ASSERT_NE(::mkdtemp(dirTemplate), nullptr);
        dir_ = dirTemplate;
        PLT_SetLogSink(logSink);
        PLT_SetTerminalSink(quietTerminal);
        ASSERT_EQ(PLT_SetIpcDir(dir_ + "/ipc"), MAN_OK);
        PLT_SetTimerUnitUs(kTimerUnitUs);
    }
    void TearDown() override
    {
        PLT_Shutdown();
        delete pBackend.exchange(nullptr);
        delete pManager.exchange(nullptr);
        PLT_SetLogSink(nullptr);
        PLT_SetTerminalSink(nullptr);
        ::rmdir((dir_ + "/ipc").c_str());
        ::rmdir(dir_.c_str());
    }

    std::string dir_;
};

TEST_F(StressTest, EverySearchEndsOnceWhateverThePeerDoes)
{
    /* kivo first: requests without a source address leave from the first task. */
    ASSERT_EQ(KIVO_ExpInit(), 0);
    ASSERT_EQ(MAN_ExpTCreate("webconfd", &TaskIdTbl[kPeerTask], 0, peerTask), MAN_OK);
    ASSERT_EQ(MAN_ExpTCreate("cache", &TaskIdTbl[KIVO_CACHE_TASK], 0, cacheTask), MAN_OK);
    PLT_Drain();
    ASSERT_NE(pBackend.load(), nullptr) << "the kivo task did not start";

    std::vector<std::vector<boost::shared_ptr<StressClient>>> clients(kCallers);
    std::vector<std::thread> threads;
    for (int c = 0; c < kCallers; c++) {
        threads.emplace_back([c, &clients] {
            std::mt19937 rng(static_cast<unsigned>(c) + 1);
            Contact contact("source", "u", "", "Tilmo", "Wefer", "H\xF6strand", boost::none);
            Event event;
            event.uid = "ev";
            for (int i = 0; i < kOpsPerCaller; i++) {
                const unsigned int pick = rng() % 10;
                if (pick == 0) {
                    KIVO_ExpAddContact(&contact);
                } else if (pick == 1) {
                    KIVO_ExpDelContact(&contact);
                } else if (pick == 2) {
                    KIVO_ExpAddEvent(&event);
                } else if (pick == 3) {
                    KIVO_ExpDelEvent(&event);
                } else {
                    static const QueryMode modes[] = {ID, Number, NameAlpha, NameVanity, Index, EventRange, FolderList};
                    boost::shared_ptr<StressClient> client(
                        new StressClient(modes[rng() % 7], Json::Value("W"), rng() % 3 == 0, rng() % 8 == 0));
                    clients[static_cast<std::size_t>(c)].push_back(client);
                    started++;
                    KIVO_ExpQuery(client, Manager::SearchBackends);
                }
            }
        });
    }
    /* The console: test searches, deletes of their rows, traces. */
    threads.emplace_back([] {
        static const char* const lines[] = {"name W", "del 0", "ts info 1", "number 0711", "add 1", "ts info 0",
                                            "id u", "del 1", "ts exp 1", "index 2", "ts exp 0", "dd"};
        for (int i = 0; i < kConsoleLines; i++)
            KIVO_Interpreter(lines[static_cast<std::size_t>(i) % (sizeof lines / sizeof lines[0])]);
    });
    /* The interface switch, flipped while calls are under way. */
    threads.emplace_back([] {
        for (int i = 0; i < 40; i++) {
            KIVO_SetIfcEnable(i % 4 == 3 ? 0 : 1);
            std::this_thread::yield();
        }
        KIVO_SetIfcEnable(1);
    });
    for (std::thread& t : threads)
        t.join();

    /* Searches end by reply or timer; changes leave the table the same way. */
    {
        std::unique_lock<std::mutex> lock(endMu);
        ASSERT_TRUE(endCv.wait_for(lock, kSettle, [] { return ended.load() == started.load(); }))
            << ended.load() << " of " << started.load() << " searches ended";
    }
    const auto deadline = std::chrono::steady_clock::now() + kSettle;
    while (pBackend.load()->openCount() != 0 && std::chrono::steady_clock::now() < deadline) {
        std::unique_lock<std::mutex> lock(endMu);
        endCv.wait_for(lock, std::chrono::milliseconds(10));
    }
    ASSERT_EQ(pBackend.load()->openCount(), 0u) << "requests left open after their timers";

    /* Everything has ended: now the held-back replies come, surely late. */
    CManMessage flush;
    ASSERT_EQ(flush.Create(kPrimFlush, 0, 0), MAN_OK);
    ASSERT_EQ(cManIO.SendLocal(flush, kPeerTask), MAN_OK);
    flush.Delete();
    PLT_Drain();

    EXPECT_EQ(pBackend.load()->openCount(), 0u);
    EXPECT_EQ(faults.load(), 0) << "a search ended twice or got records after its end";
    EXPECT_EQ(ended.load(), started.load());
    EXPECT_EQ(badMessages.load(), 0);
    EXPECT_EQ(notices.load(), noticesDue.load()) << "config change without its cache-clear notice";
    EXPECT_GT(started.load(), kCallers * kOpsPerCaller / 2);
    RecordProperty("searches", started.load());
    RecordProperty("requests", peerRequests);

    std::size_t searches = 0;
    for (const auto& list : clients) {
        for (const auto& client : list) {
            searches++;
            EXPECT_EQ(client->finishedCount(), 1);
            EXPECT_EQ(client.use_count(), 1) << "the module keeps a client reference";
        }
    }
    EXPECT_GT(searches, 0u);
    clients.clear();
    {
        std::lock_guard<std::mutex> lock(followMu);
        for (const auto& client : followUps)
            EXPECT_EQ(client.use_count(), 1);
        followUps.clear();
    }
    EXPECT_EQ(alive.load(), 0) << "a query client was never released";
}

}  // namespace
