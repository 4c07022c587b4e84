/* Stress on the working platform: caller threads search and change while the
 * console searches and deletes; a daemon task answers over a real socket by
 * the plan each search value names. The totals prove no search or change was
 * lost, ended twice, fed late or kept open. */
#include <stdlib.h>
#include <unistd.h>

#include <thread>

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include "module_support.h"
#include "platform/runtime.h"

using namespace ZEMBRA::Phonebook;

struct Plan { std::vector<std::pair<int, bool>> replies; int records; };   /* replies: type, with two records */
const Plan plans[] = {
    {{{Contacts, true}, {Contacts, false}}, 2},
    {{{Contacts, false}}, 0},
    {{{Contacts, false}, {Contacts, true}, {Contacts, false}}, 0},   /* all after the first end comes late */
    {{}, 0},                                                         /* silence: the timer ends it */
    {{{Contacts, true}}, 2},                                         /* records, then the timer ends it */
    {{{Acknowledge, false}}, 0},                                     /* last: a change's plan */
};
constexpr std::size_t kPlans = 6, kClients = 300;
std::atomic<int> ended{0}, searches{0}, eventChanges{0};   /* requests the daemon received */

struct Client : AbstractQueryClient {
    explicit Client(std::size_t plan) : plan(plan) { parameters = {std::to_string(plan), NameAlpha, 0, 100, ""}; }
    void requestFinished() override { ends++, ended++; }
    void addContact(const Contact&, CacheInfo) override { late++; }
    void addContact(const Contact&, CacheInfo, const std::string&, int) override { (ends == 0 ? records : late)++; }
    void addEvent(const Event&, CacheInfo) override { late++; }
    void addFolder(const Folder&, CacheInfo) override { late++; }
    const std::size_t plan;
    int ends = 0, records = 0, late = 0;   /* kivo task */
};

void daemonTask(int event, unsigned int primitive, void* raw)
{
    if (event != MAN_EVENT_MESSAGE)
        return;
    CManMessage msg;
    const Json::Value request = parseJson(msg.Assign(raw) == MAN_OK ? msg.getString() : "");
    const std::string to = PLT_MessageSource(raw);
    MAN_ExpPFree(raw);
    const Json::Value& data = request["params"]["data"];   /* an added record: acknowledged */
    const std::size_t plan = data.isString() ? std::strtoul(data.asString().c_str(), nullptr, 10) : kPlans - 1;
    if (primitive != KIVO_PRIM_CHANGE)
        searches++;
    else if (request["params"]["kind"] == "event")   /* the callers' changes; the console deletes contacts */
        eventChanges++;
    ASSERT_TRUE(request.isObject() && plan < kPlans) << request;
    const Json::Value none(Json::arrayValue), two = parseJson("[{\"uid\":\"1\"},{\"uid\":\"2\"}]");
    for (const std::pair<int, bool>& reply : plans[plan].replies) {
        const std::string text = replyText(request["queryId"].asUInt(), reply.first, 2, reply.second ? two : none);
        EXPECT_TRUE(msg.Create(KIVO_PRIM_RESULT, 0, static_cast<int>(text.size())) == MAN_OK &&
                    Platform::addString(msg, text) == MAN_OK &&
                    PLT_SendIpc(msg, "webconfd@Local", to.c_str()) == MAN_OK);
        msg.Delete();
    }
}

TEST(StressTest, EverySearchEndsOnceAsItsPlanSays)
{
    char dir[] = "/tmp/kivo-stress-XXXXXX";
    ASSERT_NE(::mkdtemp(dir), nullptr);
    ASSERT_EQ(PLT_SetIpcDir(std::string(dir) + "/ipc"), MAN_OK);
    PLT_SetTerminalSink([](const char*, std::size_t) {});
    PLT_SetTimerUnitUs(600);   /* 3 s query timers: long past any answer, soon enough for silence */
    ASSERT_EQ(KIVO_ExpInit(), 0);
    ASSERT_EQ(MAN_ExpTCreate("webconfd", &TaskIdTbl[71], 0, daemonTask), MAN_OK);
    PLT_Drain();
    std::vector<boost::shared_ptr<Client>> clients(kClients);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < 4; t++)
        threads.emplace_back([t, &clients] {
            Event event;
            for (std::size_t i = t; i < kClients; i += 4) {
                EXPECT_EQ(KIVO_ExpQuery(clients[i] = boost::make_shared<Client>(i % kPlans), SearchBackends), 0);
                EXPECT_EQ(KIVO_ExpAddEvent(&event), 0);
            }
        });
    for (int i = 0; i < 400; i++)   /* its rows are written on the kivo task and read here */
        KIVO_Interpreter(i % 2 ? "del 0" : "name 0");
    for (std::thread& t : threads)
        t.join();
    for (int i = 0; i < 6000 && ended < static_cast<int>(kClients); i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    PLT_Drain();
    std::vector<int> want(kPlans, kClients / kPlans), good(kPlans);
    for (const boost::shared_ptr<Client>& c : clients)
        good[c->plan] += c->ends == 1 && c->late == 0 && c->records == plans[c->plan].records && c.use_count() == 1 &&
                         Library::result(*c) == (c->records > 0 ? ResultFound : ResultNone);
    EXPECT_EQ(good, want) << "searches that ended once as their plan says, by plan";
    EXPECT_EQ(searches, static_cast<int>(kClients) + 200);
    EXPECT_EQ(eventChanges, static_cast<int>(kClients));
    EXPECT_EQ(pBackend.load()->openCount(), 0u);
    PLT_Shutdown();
    resetModule();
    PLT_SetTerminalSink(nullptr);
    ::rmdir((std::string(dir) + "/ipc").c_str());
    ::rmdir(dir);
}
