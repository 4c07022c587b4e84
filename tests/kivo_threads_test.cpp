/*
 * Several threads search and change while the kivo task answers, repeats,
 * stays silent and lets timers expire: every search ends exactly once, the
 * table ends empty and every client is released.
 */
#include <random>
#include <thread>

#include "kivo_fixture.h"

using namespace ZEMBRA::Phonebook;

namespace {

class ThreadsTest : public KivoTest {};

TEST_F(ThreadsTest, EverySearchEndsExactlyOnce)
{
    start();
    constexpr int kCallers = 4;
    constexpr int kOpsPerCaller = 250;

    std::vector<std::vector<boost::shared_ptr<FakeClient>>> clients(kCallers);
    std::atomic<int> done{0};
    std::vector<std::thread> callers;
    for (int c = 0; c < kCallers; c++) {
        callers.emplace_back([c, &clients, &done] {
            std::mt19937 rng(static_cast<unsigned>(c) + 1);
            Contact contact("source", "u", "", "Tilmo", "Wefer", "H\xF6strand", boost::none);
            Event event;
            for (int i = 0; i < kOpsPerCaller; i++) {
                switch (rng() % 4) {
                case 0:
                    KIVO_ExpAddContact(&contact);
                    break;
                case 1:
                    KIVO_ExpDelEvent(&event);
                    break;
                default: {
                    boost::shared_ptr<FakeClient> client(new FakeClient());
                    clients[static_cast<std::size_t>(c)].push_back(client);
                    KIVO_ExpQuery(client, Manager::SearchBackends);
                }
                }
            }
            done++;
        });
    }

    /* This thread is the kivo task: replies and timer expiries, one at a
     * time, while the callers go on. */
    std::mt19937 rng(99);
    std::size_t seen = 0;
    auto answer = [&](const rec::IpcSend& sent) {
        Json::Value request;
        std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
        const std::string text = sent.msg.string(0);
        ASSERT_TRUE(reader->parse(text.data(), text.data() + text.size(), &request, nullptr));
        const unsigned int id = request["queryId"].asUInt();
        const bool isSearch = sent.msg.primitive != KIVO_PRIM_CHANGE;
        Json::Value items(Json::arrayValue);
        items.append(contactItem("Wefer"));
        switch (rng() % 5) {
        case 0:   /* records, then the end */
            if (isSearch)
                reply(id, Contacts, 1, items);
            reply(id, isSearch ? Contacts : Acknowledge, 1);
            break;
        case 1:   /* the end, twice */
            reply(id, isSearch ? Contacts : Acknowledge, 0);
            reply(id, isSearch ? Contacts : Acknowledge, 0);
            break;
        case 2:   /* silence: the timer ends it */
            break;
        case 3:   /* records, then silence */
            if (isSearch)
                reply(id, Contacts, 2, items);
            break;
        default:  /* an acknowledgement, also for searches */
            reply(id, Acknowledge, 0);
            break;
        }
    };
    while (done.load() < kCallers || seen < rec::ipcSince(0).size()) {
        std::vector<rec::IpcSend> fresh = rec::ipcSince(seen);
        seen += fresh.size();
        for (const rec::IpcSend& s : fresh)
            answer(s);
        /* Let some timers expire while requests still come in. */
        for (std::size_t i = 0, n = rec::timerCount(); i < n; i++)
            if (rng() % 3 == 0)
                rec::fireTimer(i);
        if (fresh.empty())
            std::this_thread::yield();
    }
    for (std::thread& t : callers)
        t.join();
    rec::fireAllTimers();

    EXPECT_EQ(backend().openCount(), 0u);
    std::size_t searches = 0;
    for (const auto& list : clients) {
        for (const auto& client : list) {
            searches++;
            EXPECT_EQ(client->finishedCalls, 1) << "exactly one end per search";
            EXPECT_EQ(client.use_count(), 1) << "the module keeps no reference";
        }
    }
    EXPECT_EQ(rec::recorder().ipc.size(), static_cast<std::size_t>(kCallers * kOpsPerCaller));
    EXPECT_GT(searches, 0u);
}

}  // namespace
