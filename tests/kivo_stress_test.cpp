/*
 * Concurrency stress on the working platform: caller threads start searches
 * and changes at once on the real kivo task with real timers, and a daemon
 * task answers over a real socket by the plan each search value names. The
 * totals prove that no search was lost, ended twice, given records after its
 * end or kept by the module. CI runs it under ThreadSanitizer too.
 */
#include <stdlib.h>
#include <unistd.h>

#include <condition_variable>
#include <thread>

#include <gtest/gtest.h>

#include "module_support.h"
#include "platform/runtime.h"

using namespace ZEMBRA::Phonebook;

namespace {

struct Plan {
    std::vector<std::pair<int, int>> replies;   /* type, records */
    int records;                                /* what the client gets */
};
const Plan plans[] = {
    {{{Contacts, 2}, {Contacts, 0}}, 2},
    {{{Contacts, 0}}, 0},
    {{{Contacts, 0}, {Contacts, 2}, {Contacts, 0}}, 0},   /* the second end and its records come late */
    {{}, 0},                                              /* silence: the timer ends it */
    {{{Acknowledge, 0}}, 0},                              /* also how changes are answered */
};
constexpr int kPlans = 5, kClients = 400, kChangeEvery = 4;

std::mutex mu;
std::condition_variable cv;
int ended = 0;                       /* guarded by mu */
std::vector<int> requests(kPlans + 1);   /* daemon task: by plan, changes last */
std::atomic<int> errorRecords{0};

struct Client : AbstractQueryClient {
    explicit Client(int plan) : plan(plan) { parameters = {std::to_string(plan), NameAlpha, 0, 100, ""}; }
    void requestFinished() override
    {
        std::lock_guard<std::mutex> lock(mu);
        ends++;
        ended++;
        cv.notify_all();
    }
    void addContact(const Contact&, CacheInfo) override { late++; }
    void addContact(const Contact&, CacheInfo, const std::string&, int) override { (ends == 0 ? records : late)++; }
    void addEvent(const Event&, CacheInfo) override { late++; }
    void addFolder(const Folder&, CacheInfo) override { late++; }
    const int plan;
    int ends = 0, records = 0, late = 0;   /* kivo task */
};

void daemonTask(int event, unsigned int primitive, void* raw)
{
    if (event != MAN_EVENT_MESSAGE)
        return;
    CManMessage msg;
    const std::string to = PLT_MessageSource(raw);
    const Json::Value request = parseJson(msg.Assign(raw) == MAN_OK ? msg.getString() : "");
    MAN_ExpPFree(raw);
    const int plan = primitive == KIVO_PRIM_CHANGE ? kPlans : std::atoi(request["params"]["data"].asString().c_str());
    ASSERT_TRUE(request.isObject() && plan >= 0 && plan <= kPlans);
    requests[static_cast<std::size_t>(plan)]++;
    for (const auto& reply : plans[plan == kPlans ? kPlans - 1 : plan].replies) {
        Json::Value items(Json::arrayValue);
        for (int i = 0; i < reply.second; i++)
            items.append(contactItem("Wefer"));
        const std::string text = replyText(request["queryId"].asUInt(), reply.first, reply.second, items);
        EXPECT_TRUE(msg.Create(KIVO_PRIM_RESULT, 0, static_cast<int>(text.size())) == MAN_OK &&
                    msg.addString(text) == MAN_OK && cManIO.SendIpc(msg, "webconfd@Local", to.c_str()) == MAN_OK);
        msg.Delete();
    }
}

TEST(StressTest, EverySearchEndsOnceAsItsPlanSays)
{
    char dir[] = "/tmp/kivo-stress-XXXXXX";
    ASSERT_NE(::mkdtemp(dir), nullptr);
    PLT_SetLogSink([](int level, const char*, const char*, int, const char*) { errorRecords += level == PLT_LOG_ERROR; });
    ASSERT_EQ(PLT_SetIpcDir(std::string(dir) + "/ipc"), MAN_OK);
    PLT_SetTimerUnitUs(400);   /* 2 s query timers: long past any answer, soon enough for silence */
    ASSERT_EQ(KIVO_ExpInit(), 0);
    ASSERT_EQ(MAN_ExpTCreate("webconfd", &TaskIdTbl[71], 0, daemonTask), MAN_OK);
    PLT_Drain();
    ASSERT_NE(pBackend.load(), nullptr);

    std::vector<boost::shared_ptr<Client>> clients(kClients);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; t++) {
        threads.emplace_back([t, &clients] {
            Contact contact("source", "uid", "", "Tilmo", "Wefer", "", boost::none);
            for (int i = t; i < kClients; i += 4) {
                clients[static_cast<std::size_t>(i)].reset(new Client(i % kPlans));
                EXPECT_EQ(KIVO_ExpQuery(clients[static_cast<std::size_t>(i)], Manager::SearchBackends), 0);
                EXPECT_EQ(i % kChangeEvery == 0 ? KIVO_ExpAddContact(&contact) : 0, 0);
            }
        });
    }
    for (std::thread& t : threads)
        t.join();
    {
        std::unique_lock<std::mutex> lock(mu);
        EXPECT_TRUE(cv.wait_for(lock, std::chrono::seconds(60), [] { return ended >= kClients; })) << ended;
    }
    for (int i = 0; i < 1000 && pBackend.load()->openCount() != 0; i++)   /* the changes' acknowledgements */
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    PLT_Drain();

    std::vector<int> want(kPlans, kClients / kPlans), good(kPlans), sent(want);
    sent.push_back(kClients / kChangeEvery);
    for (const boost::shared_ptr<Client>& c : clients) {
        const int records = plans[c->plan].records;
        good[static_cast<std::size_t>(c->plan)] += c->ends == 1 && c->late == 0 && c->records == records &&
                                                 c->result == (records > 0 ? Client::ResultFound : Client::ResultNone) &&
                                                 c.use_count() == 1;
    }
    EXPECT_EQ(good, want) << "searches that ended once as their plan says, by plan";
    EXPECT_EQ(requests, sent) << "requests the daemon received, by plan; changes last";
    EXPECT_EQ(pBackend.load()->openCount(), 0u);
    EXPECT_EQ(errorRecords.load(), 0);
    PLT_Shutdown();
    resetModule();
    PLT_SetLogSink(nullptr);
    ::rmdir((std::string(dir) + "/ipc").c_str());
    ::rmdir(dir);
}

}  // namespace
