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

using namespace webconfd;

namespace {

std::string g_log;

class OutboxTest : public ::testing::Test {
protected:
    OutboxTest()
    {
        PLT_SetLogSink([](int, const char*, const char* function, int, const char* text) {
            g_log += std::string(function) + ": " + text + "\n";
        });
        g_log.clear();
        limits.patienceMs = 100;
    }
    ~OutboxTest() override { PLT_SetLogSink(nullptr); }

    /* Made at first use, after a case has set its limits. A room below 0: the socket is gone. */
    Outbox& outbox()
    {
        auto send = [this](const std::string& to, const std::string& text, bool) {
            int& left = room[to];
            if (left <= 0)
                return left < 0 ? SendResult::Gone : SendResult::Full;
            left--;
            got[to] += text + " ";
            return SendResult::Sent;
        };
        if (!box)
            box.reset(new Outbox(send, limits, [this](const std::string& to) { forgotten += to + " "; },
                                 [this] { return now; }));
        return *box;
    }
    /* A search's reply: `text` names it, "end" ends the search. */
    void reply(const std::string& to, uint32_t queryId, const std::string& text)
    {
        outbox().post(Outgoing{to, text, 0, queryId, true, text.compare(0, 3, "end") == 0});
    }
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
    std::string forgotten;
};

/* Linux queues ten datagrams per socket. "a" reads three at a time and gets
 * every reply of a long answer, in order, however often its queue was full;
 * "b" takes nothing and is given up after its patience, then tried afresh
 * with its next request; "c" is gone and forgotten at the first failed send
 * with what waited for it. None holds up another. */
TEST_F(OutboxTest, EachClientGetsWhatItReads)
{
    std::string all;
    room["a"] = 3, room["c"] = 1;
    for (int i = 0; i < 25; i++) {
        reply("a", 7, "r" + std::to_string(i));
        all += "r" + std::to_string(i) + " ";
    }
    reply("a", 7, "end7");
    for (const char* to : {"b", "c"}) {
        reply(to, 1, "r1");
        reply(to, 1, "end1");
    }
    room["c"] = -1;
    EXPECT_GE(outbox().flush(), 0) << "a retry is due";
    for (int round = 0; round < 8; round++)
        reads("a", 3);
    EXPECT_EQ(got["a"], all + "end7 ");
    EXPECT_EQ(got["c"], "r1 ");
    EXPECT_EQ(forgotten, "c ");
    EXPECT_GT(outbox().queuedBytes(), 0u);
    reads("b", 0, 60);
    EXPECT_EQ(outbox().queuedBytes(), 0u);
    EXPECT_EQ(outbox().flush(), -1) << "nothing waits";
    EXPECT_EQ(g_log, "flush: b took no reply for 100 ms: 2 replies (6 bytes) dropped\n");
    room["b"] = 5;
    reply("b", 2, "end2");
    outbox().post(Outgoing{"c", "notice", 0});
    EXPECT_EQ(got["b"], "end2 ");
    EXPECT_EQ(forgotten, "c c ");
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

}  // namespace
