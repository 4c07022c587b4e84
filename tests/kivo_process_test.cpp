/*
 * The task callback: events, the message switch and the release of every
 * received message; the query timer it arms.
 */
#include "kivo_fixture.h"

using namespace ZEMBRA::Phonebook;

namespace {

class ProcessTest : public KivoTest {
protected:
    void SetUp() override
    {
        KivoTest::SetUp();
        start();
        clearTerminal();
    }
};

TEST_F(ProcessTest, TaskEventIsTracedAtEveryLevel)
{
    void* raw = rec::RawBuilder(1).build();
    ASSERT_TRUE(rec::deliver(67, MAN_EVENT_TASK, 0x12, raw));
    EXPECT_EQ(terminal(), "KIVO_EventSwitch wPrimitiv 00000012\n");
    EXPECT_EQ(rec::releaseCount(raw), 0) << "only messages (event 0) are released";
    ASSERT_TRUE(rec::deliver(67, MAN_EVENT_CONTROL, MAN_PRIM_START, raw));
    EXPECT_EQ(rec::releaseCount(raw), 0);
    MAN_ExpPFree(raw);
}

TEST_F(ProcessTest, TimerMessageEndsItsQuery)
{
    uiQueryId = 7;
    boost::shared_ptr<FakeClient> client = search();
    void* raw = rec::RawBuilder(0x00000002).u32(7).build();
    ASSERT_TRUE(rec::deliver(67, MAN_EVENT_MESSAGE, 2, raw));
    EXPECT_EQ(client->finishedCalls, 1);
    EXPECT_EQ(client->result, AbstractQueryClient::ResultNone);
    EXPECT_EQ(backend().openCount(), 0u);
    EXPECT_EQ(rec::releaseCount(raw), 1);
}

TEST_F(ProcessTest, ResultTextReachesTheBackendUnchanged)
{
    KIVO_DebugSet("info", 1);
    clearTerminal();
    const std::string text = "{\"queryId\": 99, \"type\": 3}";
    void* raw = rec::RawBuilder(0x00830002).str(text).build();
    ASSERT_TRUE(rec::deliver(67, MAN_EVENT_MESSAGE, 0x00830002, raw));
    EXPECT_EQ(terminal(), "Result:525 strResult \n" + text + "Result:543 abort: invalid id 63\n");
    EXPECT_EQ(rec::releaseCount(raw), 1);
}

TEST_F(ProcessTest, UnknownPrimitiveIsTracedDumpedAndFreed)
{
    void* raw = rec::RawBuilder(0x00000003).u32(5).build();
    ASSERT_TRUE(rec::deliver(67, MAN_EVENT_MESSAGE, 3, raw));
    const auto& t = rec::recorder().terminal;
    ASSERT_GE(t.size(), 2u) << "trace and dump";
    EXPECT_EQ(t[0], "KIVO_MsgSwitch *** unknown Primitive 0x00000003\n");
    EXPECT_NE(terminal().find("00000003"), std::string::npos);
    EXPECT_EQ(rec::releaseCount(raw), 1);
}

TEST_F(ProcessTest, FailedAssignIsLoggedAndTheMessageFreed)
{
    rec::failNext(PltFault::Assign, 5);
    void* raw = rec::RawBuilder(0x00830002).str("{}").build();
    ASSERT_TRUE(rec::deliver(67, MAN_EVENT_MESSAGE, 0x00830002, raw));
    const auto& logs = rec::recorder().logs;
    ASSERT_EQ(logs.size(), 1u);
    EXPECT_EQ(logs[0].level, 0);
    EXPECT_EQ(logs[0].file, "kivoprcss");
    EXPECT_EQ(logs[0].function, "KIVO_MsgSwitch");
    EXPECT_EQ(logs[0].line, 100);
    EXPECT_EQ(logs[0].text, "receive failed iRetCode 5");
    EXPECT_EQ(rec::releaseCount(raw), 1);
}

TEST_F(ProcessTest, MalformedMessagesAreRejectedAndFreed)
{
    /* Shorter than a primitive; a string field running past the end. */
    std::vector<std::vector<unsigned char>> bad = {
        {0x00, 0x83},
        {0x00, 0x83, 0x00, 0x02, MAN_TAG_STRING, 0x00, 0x00, 0x10, 0x00, 'x'},
        {0x00, 0x00, 0x00, 0x02, 0x7f},
    };
    for (const auto& bytes : bad) {
        void* raw = rec::makeRaw(bytes);
        ASSERT_TRUE(rec::deliver(67, MAN_EVENT_MESSAGE, 0, raw));
        EXPECT_EQ(rec::releaseCount(raw), 1);
    }
    EXPECT_EQ(rec::recorder().logs.size(), bad.size());
    for (const auto& log : rec::recorder().logs)
        EXPECT_EQ(log.line, 100);
}

TEST_F(ProcessTest, FieldsAreReadAsTheyComeAndHandedOn)
{
    /* getU32 and getString read a missing field as 0 and "": a timer
     * message without its id ends query 0, a reply without its text is
     * no JSON and changes nothing. */
    boost::shared_ptr<FakeClient> client = search();
    void* noText = rec::RawBuilder(0x00830002).build();
    ASSERT_TRUE(rec::deliver(67, MAN_EVENT_MESSAGE, 0x00830002, noText));
    EXPECT_EQ(backend().openCount(), 1u);
    void* noId = rec::RawBuilder(0x00000002).build();
    ASSERT_TRUE(rec::deliver(67, MAN_EVENT_MESSAGE, 2, noId));
    EXPECT_EQ(client->finishedCalls, 1);
    EXPECT_EQ(backend().openCount(), 0u);
    EXPECT_TRUE(rec::recorder().logs.empty());
    EXPECT_EQ(rec::releaseCount(noText), 1);
    EXPECT_EQ(rec::releaseCount(noId), 1);
}

TEST_F(ProcessTest, QueryTimerArmsOneTimerForTheId)
{
    EXPECT_EQ(KIVO_QueryTimer(0xDEADBEEF), 0);
    const auto& timers = rec::recorder().timers;
    ASSERT_EQ(timers.size(), 1u);
    EXPECT_EQ(timers[0].task, 67);
    EXPECT_EQ(timers[0].time, 5000u);
    EXPECT_EQ(timers[0].msg.primitive, 2u);
    ASSERT_EQ(timers[0].msg.fields.size(), 1u);
    EXPECT_EQ(timers[0].msg.u32(0), 0xDEADBEEFu);
    const std::vector<unsigned char> head(timers[0].msg.bytes.begin(), timers[0].msg.bytes.begin() + 4);
    EXPECT_EQ(head, (std::vector<unsigned char>{0, 0, 0, 2}));
}

TEST_F(ProcessTest, QueryTimerReportsAFailedCreate)
{
    rec::failNext(PltFault::Create, 2);
    EXPECT_EQ(KIVO_QueryTimer(1), -1);
    EXPECT_TRUE(rec::recorder().timers.empty());
    const auto& logs = rec::recorder().logs;
    ASSERT_EQ(logs.size(), 1u);
    EXPECT_EQ(logs[0].level, 1);
    EXPECT_EQ(logs[0].file, "kivomain");
    EXPECT_EQ(logs[0].function, "KIVO_QueryTimer");
    EXPECT_EQ(logs[0].line, 816);
    EXPECT_EQ(logs[0].text, "cMsg.Create failed\n");
}

}  // namespace
