/*
 * Callers search and change on their own threads while this thread, as the
 * kivo task, answers, repeats, stays silent and lets timers expire: every
 * search ends exactly once and no client is kept.
 */
#include <random>
#include <thread>

#include "kivo_fixture.h"

using namespace ZEMBRA::Phonebook;

class Threads : public KivoTest {};

TEST_F(Threads, EverySearchEndsExactlyOnce)
{
    constexpr int kCallers = 4, kOps = 250;
    std::vector<boost::shared_ptr<FakeClient>> clients[kCallers];
    std::atomic<int> done{0};
    std::vector<std::thread> callers;
    for (int c = 0; c < kCallers; c++) {
        callers.emplace_back([c, &clients, &done] {
            std::mt19937 rng(static_cast<unsigned>(c) + 1);
            Contact contact("source", "u", "", "Tilmo", "Wefer", "", boost::none);
            Event event;
            for (int i = 0; i < kOps; i++) {
                const unsigned int op = rng() % 4;
                if (op < 2) {
                    op == 0 ? KIVO_ExpAddContact(&contact) : KIVO_ExpDelEvent(&event);
                    continue;
                }
                clients[c].emplace_back(new FakeClient(NameAlpha, Json::Value("W")));
                KIVO_ExpQuery(clients[c].back(), SearchBackends);
            }
            done++;
        });
    }
    std::mt19937 rng(99);
    auto send = [](const std::string& text) { ASSERT_TRUE(deliverReply(text)); };
    for (std::size_t seen = 0; done.load() < kCallers || seen < rec::ipcSince(0).size();) {
        const std::vector<rec::IpcSend> fresh = rec::ipcSince(seen);
        seen += fresh.size();
        for (const rec::IpcSend& sent : fresh) {
            const unsigned int id = parseJson(sent.msg.string(0))["queryId"].asUInt();
            const int end = sent.msg.primitive == KIVO_PRIM_CHANGE ? Acknowledge : Contacts;
            const unsigned int how = rng() % 5;   /* 4: silence, the timer ends it */
            if (how < 2)                          /* records, then silence or the end */
                send(replyText(id, Contacts, 2, items({"Wefer"})));
            if (how == 1 || how == 2)             /* the end, after records or twice */
                send(replyText(id, end, 1));
            if (how == 2 || how == 3)             /* an acknowledgement also ends a search */
                send(replyText(id, how == 2 ? end : Acknowledge, 0));
        }
        for (std::size_t i = 0, n = rec::timerCount(); i < n; i++)
            if (rng() % 3 == 0)
                rec::fireTimer(i);
        if (fresh.empty())
            std::this_thread::yield();
    }
    for (std::thread& t : callers)
        t.join();
    rec::fireAllTimers();
    EXPECT_EQ(pBackend.load()->openCount(), 0u);
    EXPECT_EQ(rec::recorder().ipc.size(), static_cast<std::size_t>(kCallers * kOps));
    for (const auto& list : clients)
        for (const auto& client : list)
            EXPECT_TRUE(client->ends == 1 && client.use_count() == 1) << "one end per search, no reference kept";
}
