/*
 * Start-up: task creation, console registration, the start event, and what
 * happens when the host calls too early.
 */
#include "kivo_fixture.h"

using namespace ZEMBRA::Phonebook;

namespace {

class StartupTest : public KivoTest {};

TEST_F(StartupTest, InitCreatesTaskAndRegistersConsole)
{
    ASSERT_EQ(KIVO_ExpInit(), 0);
    const auto& r = rec::recorder();
    ASSERT_EQ(r.tasks.size(), 1u);
    EXPECT_EQ(r.tasks[0].name, "kivo");
    EXPECT_EQ(r.tasks[0].index, 67);
    EXPECT_EQ(r.tasks[0].arg, 8);
    EXPECT_EQ(r.tasks[0].callback, &KIVO_Process);
    EXPECT_NE(TaskIdTbl[67], 0);
    ASSERT_EQ(r.consoles.size(), 1u);
    EXPECT_EQ(r.consoles[0].name, "kivo");
    EXPECT_EQ(r.consoles[0].title, "kivo");
    EXPECT_EQ(r.consoles[0].interpreter, &KIVO_Interpreter);
    EXPECT_TRUE(r.logs.empty());
    EXPECT_TRUE(r.terminal.empty()) << "no trace while the exp level is off";
    EXPECT_EQ(pManager.load(), nullptr) << "the backend starts only with the task";
}

TEST_F(StartupTest, InitTracesWithExpLevel)
{
    KIVO_DebugSet("exp", 1);
    clearTerminal();
    ASSERT_EQ(KIVO_ExpInit(), 0);
    EXPECT_EQ(terminal(), "KIVO_ExpInit\n");
}

TEST_F(StartupTest, FailedTaskCreationReturnsItsCodeAndRegistersNothing)
{
    rec::failNext(PltFault::TaskCreate, 7);
    EXPECT_EQ(KIVO_ExpInit(), 7);
    const auto& r = rec::recorder();
    ASSERT_EQ(r.logs.size(), 1u);
    EXPECT_EQ(r.logs[0].level, 0);
    EXPECT_EQ(r.logs[0].file, "kivoexp");
    EXPECT_EQ(r.logs[0].function, "KIVO_ExpInit");
    EXPECT_EQ(r.logs[0].line, 69);
    EXPECT_EQ(r.logs[0].text, "unable to create process iRetCode 7");
    EXPECT_TRUE(r.consoles.empty());
    EXPECT_EQ(std::count(r.calls.begin(), r.calls.end(), "register kivo"), 0);
}

TEST_F(StartupTest, FailedRegistrationKeepsTheTaskWhichStillStarts)
{
    rec::failNext(PltFault::Register, 9);
    EXPECT_EQ(KIVO_ExpInit(), 9);
    const auto& r = rec::recorder();
    ASSERT_EQ(r.logs.size(), 1u);
    EXPECT_EQ(r.logs[0].level, 0);
    EXPECT_EQ(r.logs[0].line, 76);
    EXPECT_EQ(r.logs[0].text, "unable to register testmenue 9");
    ASSERT_EQ(r.tasks.size(), 1u);
    ASSERT_TRUE(rec::deliver(67, MAN_EVENT_CONTROL, MAN_PRIM_START, nullptr));
    EXPECT_NE(pBackend.load(), nullptr);
}

TEST_F(StartupTest, StartEventCreatesOneBackendOnce)
{
    start();
    PbBackend* first = pBackend.load();
    Manager* manager = pManager.load();
    EXPECT_EQ(first->id(), "vornsyn");
    EXPECT_EQ(first->openCount(), 0u);
    EXPECT_EQ(first->supportedQueryModes(), 127);

    ASSERT_TRUE(rec::deliver(67, MAN_EVENT_CONTROL, MAN_PRIM_START, nullptr));
    EXPECT_EQ(pBackend.load(), first);
    EXPECT_EQ(pManager.load(), manager);
    EXPECT_TRUE(rec::recorder().terminal.empty());
    EXPECT_TRUE(rec::recorder().logs.empty());

    /* The manager routes to this backend. */
    boost::shared_ptr<FakeClient> client(new FakeClient());
    EXPECT_EQ(KIVO_ExpQuery(client, Manager::SearchBackends), 0);
    EXPECT_EQ(first->openIds(), std::vector<unsigned int>{0});
}

TEST_F(StartupTest, OtherControlEventsStartNothing)
{
    ASSERT_EQ(KIVO_ExpInit(), 0);
    ASSERT_TRUE(rec::deliver(67, MAN_EVENT_CONTROL, 2, nullptr));
    ASSERT_TRUE(rec::deliver(67, 7, 1, nullptr));
    EXPECT_EQ(pManager.load(), nullptr);
    EXPECT_EQ(pBackend.load(), nullptr);
    KIVO_InitDb();
    EXPECT_EQ(pManager.load(), nullptr);
}

TEST_F(StartupTest, CallsBeforeTheStartAreRefusedNotCrashed)
{
    ASSERT_EQ(KIVO_ExpInit(), 0);
    boost::shared_ptr<FakeClient> client(new FakeClient());
    EXPECT_EQ(KIVO_ExpQuery(client, Manager::SearchBackends), -1);
    EXPECT_EQ(client->finishedCalls, 1) << "a waiting client must be released";
    Contact contact;
    EXPECT_EQ(KIVO_ExpAddContact(&contact), -1);
    Event event;
    EXPECT_EQ(KIVO_ExpDelEvent(&event), -1);
    EXPECT_EQ(rec::recorder().logCount("kivo task not started"), 3u);
    EXPECT_TRUE(rec::recorder().ipc.empty());

    /* A stray timer or reply before the start event is dropped and freed. */
    void* timer = rec::RawBuilder(KIVO_PRIM_TIMER).u32(0).build();
    ASSERT_TRUE(rec::deliver(67, MAN_EVENT_MESSAGE, KIVO_PRIM_TIMER, timer));
    void* result = rec::RawBuilder(KIVO_PRIM_RESULT).str("{}").build();
    ASSERT_TRUE(rec::deliver(67, MAN_EVENT_MESSAGE, KIVO_PRIM_RESULT, result));
    EXPECT_EQ(rec::releaseCount(timer), 1);
    EXPECT_EQ(rec::releaseCount(result), 1);
}

TEST_F(StartupTest, NullClientIsRefused)
{
    start();
    EXPECT_EQ(KIVO_ExpQuery(boost::shared_ptr<AbstractQueryClient>(), Manager::SearchBackends), -1);
    EXPECT_EQ(rec::recorder().logCount("no query client"), 1u);
    EXPECT_EQ(backend().openCount(), 0u);
    EXPECT_TRUE(rec::recorder().ipc.empty());
}

}  // namespace
