/*
 * webconfd's outbox without sockets: a scripted receiver per destination
 * takes so many messages before its queue is full (or is gone), the clock
 * is moved by hand, and what reached each receiver is compared whole.
 */
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "outbox.h"
#include "platform/runtime.h"

using webconfd::Outbox;
using webconfd::OutboxLimits;
using webconfd::Outgoing;
using webconfd::SendResult;

namespace {

std::string g_log;

void logTo(int, const char*, const char* function, int, const char* text)
{
    g_log += std::string(function) + ": " + text + "\n";
}

class OutboxTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_log.clear();
        PLT_SetLogSink(logTo);
        limits.patienceMs = 100;
        limits.retryMs = 5;
    }
    void TearDown() override { PLT_SetLogSink(nullptr); }

    Outbox& outbox()
    {
        if (!box)
            box.reset(new Outbox(
                [this](const std::string& to, const std::string& text, bool) {
                    if (gone.count(to) != 0)
                        return SendResult::Gone;
                    if (room[to] == 0)
                        return SendResult::Full;
                    room[to]--;
                    got[to] += text + " ";
                    return SendResult::Sent;
                },
                limits, [this](const std::string& to) { forgotten += to + " "; }, [this] { return now; }));
        return *box;
    }
    /* A search's reply: `text` names it, "end" ends the search. */
    void reply(const std::string& to, uint32_t queryId, const std::string& text)
    {
        outbox().post(Outgoing{to, text, 0, queryId, true, text.compare(0, 3, "end") == 0});
    }
    void notice(const std::string& to) { outbox().post(Outgoing{to, "notice", 0}); }
    /* The receiver reads its queue empty; time passes. */
    int64_t reads(const std::string& who, int n, int64_t ms = 5)
    {
        room[who] = n;
        now += ms;
        return outbox().flush();
    }

    OutboxLimits limits;
    std::unique_ptr<Outbox> box;
    int64_t now = 1000;
    std::map<std::string, int> room;
    std::map<std::string, std::string> got;
    std::set<std::string> gone;
    std::string forgotten;
};

/* Linux queues ten datagrams per socket: a client that reads gets every
 * reply of a long answer, in order, however often its queue was full. */
TEST_F(OutboxTest, AReadingClientGetsEveryReplyInOrder)
{
    room["a"] = 3;
    for (int i = 0; i < 25; i++)
        reply("a", 7, "r" + std::to_string(i));
    reply("a", 7, "end7");
    EXPECT_GE(outbox().flush(), 0) << "a retry is due";
    for (int round = 0; round < 10 && outbox().queuedBytes() > 0; round++)
        reads("a", 3);
    std::string all;
    for (int i = 0; i < 25; i++)
        all += "r" + std::to_string(i) + " ";
    EXPECT_EQ(got["a"], all + "end7 ");
    EXPECT_EQ(outbox().queuedBytes(), 0u);
    EXPECT_EQ(outbox().flush(), -1) << "nothing waits";
    EXPECT_EQ(g_log, "");
}

/* A client that takes nothing is given up after its patience; meanwhile
 * and afterwards the others are answered at once, and it is tried afresh
 * with its next request. */
TEST_F(OutboxTest, AClientThatDoesNotReadIsGivenUpAndHoldsUpNobody)
{
    room["b"] = 100;
    reply("a", 1, "r1");
    reply("a", 1, "end1");
    reply("b", 1, "r1");
    reply("b", 1, "end1");
    EXPECT_EQ(got["b"], "r1 end1 ");
    reads("a", 0, 50);
    notice("b");
    EXPECT_EQ(got["b"], "r1 end1 notice ");
    EXPECT_GT(outbox().queuedBytes(), 0u);
    reads("a", 0, 50);
    EXPECT_EQ(outbox().queuedBytes(), 0u);
    EXPECT_EQ(g_log, "flush: a took no reply for 100 ms: 2 replies (6 bytes) dropped\n");
    EXPECT_EQ(outbox().flush(), -1);
    room["a"] = 5;
    reply("a", 2, "end2");
    EXPECT_EQ(got["a"], "end2 ");
}

/* A search that lost a reply, at the byte bound or when its client was
 * given up, never ends by its empty reply: the client would take the
 * shortened answer for a whole one. Other searches and notices go on. */
TEST_F(OutboxTest, ASearchThatLostAReplyIsNotEnded)
{
    limits.bytesPerDestination = 12;
    reply("a", 1, "r1-1");      // queued: 4 bytes
    reply("a", 1, "r1-2xxxx");  // 12 bytes with it: kept
    reply("a", 1, "r1-3");      // past the bound: dropped
    reply("a", 2, "end2");      // another search: dropped for room, not broken
    reply("a", 1, "end1");      // the end of the broken search: never sent
    reads("a", 10);
    room["a"] = 0;
    reply("a", 3, "r3");
    reads("a", 0, limits.patienceMs);   // given up with r3
    room["a"] = 10;
    reply("a", 3, "end3");   // posted later, as with --fault-delay-ms: never sent
    reply("a", 4, "end4");
    EXPECT_EQ(got["a"], "r1-1 r1-2xxxx end4 ");
    EXPECT_EQ(g_log,
              "post: replies to a dropped: 12 bytes wait for it, 12 for all\n"
              "flush: a took no reply for 100 ms: 1 replies (2 bytes) dropped\n");
}

/* A client whose socket is gone is forgotten at the first failed send,
 * with what waited for it. */
TEST_F(OutboxTest, AGoneClientIsForgottenAtOnce)
{
    reply("a", 1, "r1");
    reply("a", 1, "end1");
    gone.insert("a");
    room["b"] = 1;
    notice("b");
    reads("a", 0);
    notice("a");
    EXPECT_EQ(forgotten, "a a ");
    EXPECT_EQ(got["b"], "notice ");
    EXPECT_EQ(outbox().queuedBytes(), 0u);
    EXPECT_EQ(outbox().flush(), -1);
}

}  // namespace
