/*
 * Start-up and its failures, calls that come too early, the task's message
 * switch and the release of what it receives; the exported functions, the
 * interface switch and its refusals, the trace levels and the dumps.
 */
#include "kivo_fixture.h"

using namespace ZEMBRA::Phonebook;

namespace {

/* The module's state as loaded (levels exp and info, switch, query id),
 * before any case resets it. */
const std::vector<int> loaded = {KIVODebugLevel[0], KIVODebugLevel[1], iIfcEnable, static_cast<int>(uiQueryId)};

TEST(Load, StateBeforeTheStart)
{
    EXPECT_EQ(loaded, (std::vector<int>{0, 0, 1, 0}));
}

/* Each exported phonebook function once, with real records or, so that
 * the pointer traces read the same on every run, with none. */
void everyCall(KivoTest& t, int result, bool records)
{
    Contact contact("source", "u-1", "", "", "Wefer", "", boost::none);
    Event event = makeEvent("source", "ev-1", EventMissed, "0711", "", 0, 0);
    EXPECT_EQ(t.query(Number), result);
    EXPECT_EQ(KIVO_ExpAddContact(records ? &contact : nullptr), result);
    EXPECT_EQ(KIVO_ExpDelContact(records ? &contact : nullptr), result);
    EXPECT_EQ(KIVO_ExpAddEvent(records ? &event : nullptr), result);
    EXPECT_EQ(KIVO_ExpDelEvent(records ? &event : nullptr), result);
}

const Row rows[] = {
    {"Start", DO(t.unload(); KIVO_DebugSet("exp", 1); EXPECT_EQ(KIVO_ExpInit(), 0); EXPECT_EQ(pManager.load(), nullptr);
                 ASSERT_TRUE(t.startEvent()); PbBackend* first = pBackend.load(); ASSERT_TRUE(t.startEvent());
                 EXPECT_EQ(pBackend.load(), first); EXPECT_EQ(first->id(), "vornsyn")),
     "KIVO_DebugSet pName exp  iValue 1\nKIVO_ExpInit\n* tcreate kivo 67 8 KIVO_Process\n* register kivo kivo KIVO_Interpreter\n"},
    {"TaskNotCreated", DO(t.unload(); rec::failNext(PltFault::TaskCreate, 7); EXPECT_EQ(KIVO_ExpInit(), 7)),
     "* tcreate kivo\n* log kivoexp:KIVO_ExpInit:69 unable to create process iRetCode 7\n"},
    /* The task is kept and still starts. */
    {"ConsoleNotRegistered", DO(t.unload(); rec::failNext(PltFault::Register, 9); EXPECT_EQ(KIVO_ExpInit(), 9);
                                ASSERT_TRUE(t.startEvent()); EXPECT_NE(pBackend.load(), nullptr)),
     "* tcreate kivo 67 8 KIVO_Process\n* register kivo\n* log kivoexp:KIVO_ExpInit:76 unable to register testmenue 9\n"},
    {"OtherEventsStartNothing", DO(t.unload(); KIVO_ExpInit(); rec::deliver(67, MAN_EVENT_CONTROL, 2, nullptr);
                                   rec::deliver(67, 7, 1, nullptr); KIVO_InitDb(); EXPECT_EQ(pManager.load(), nullptr)),
     "* tcreate kivo 67 8 KIVO_Process\n* register kivo kivo KIVO_Interpreter\n"},
    {"CallsBeforeTheStart", DO(t.unload(); ASSERT_EQ(KIVO_ExpInit(), 0); everyCall(t, -1, true);
                               t.deliver(rec::RawBuilder(KIVO_PRIM_TIMER).u32(0));
                               t.deliver(rec::RawBuilder(KIVO_PRIM_RESULT).str("{}"))),
     "* tcreate kivo 67 8 KIVO_Process\n* register kivo kivo KIVO_Interpreter\n* error kivomain:KIVO_Query:703 kivo task not started\n~0 requestFinished\n"
     "~0 released\n* error kivomain:KIVO_AddContact:723 kivo task not started\n* error kivomain:KIVO_DelContact:743 kivo task not started\n"
     "* error kivomain:KIVO_AddEvent:763 kivo task not started\n* error kivomain:KIVO_DelEvent:783 kivo task not started\n"
     "* log kivomain:KIVO_QueryTimeout:831 no backend yet, timer 0 dropped\n* log kivomain:KIVO_QueryResult:841 no backend yet, result dropped\n"},
    {"TaskEvent", DO(void* raw = rec::RawBuilder(1).build(); rec::deliver(67, MAN_EVENT_TASK, 0x12, raw);
                     EXPECT_EQ(rec::releaseCount(raw), 0); MAN_ExpPFree(raw)), "KIVO_EventSwitch wPrimitiv 00000012\n"},
    {"UnknownPrimitive", DO(t.deliver(rec::RawBuilder(0x12345678).u32(5).str("a\\b\x01"))),
     "KIVO_MsgSwitch *** unknown Primitive 0x12345678\nCManMessage primitive 0x12345678 length 18\n  u32 0x00000005 5\n  string length 4 \"a\\x5cb\\x01\"\n"},
    {"NotAMessage", DO(rec::failNext(PltFault::Assign, 5); t.deliver(rec::RawBuilder(KIVO_PRIM_RESULT).str("{}"));
                       rec::deliver(67, MAN_EVENT_MESSAGE, 0, rec::makeRaw({0x00, 0x83}));
                       rec::deliver(67, MAN_EVENT_MESSAGE, 0, rec::makeRaw({0, 0, 0, 2, MAN_TAG_STRING, 0, 0, 9, 'x'}));
                       rec::deliver(67, MAN_EVENT_MESSAGE, 0, rec::makeRaw({0, 0, 0, 2, 0x7f}))),
     "* log kivoprcss:KIVO_MsgSwitch:100 receive failed iRetCode 5\n* log kivoprcss:KIVO_MsgSwitch:100 receive failed iRetCode 3\n"
     "* log kivoprcss:KIVO_MsgSwitch:100 receive failed iRetCode 3\n* log kivoprcss:KIVO_MsgSwitch:100 receive failed iRetCode 3\n"},
    /* A missing field reads as 0 or "": the timer ends query 0, the reply
     * is no JSON. */
    {"FieldsMissing", DO(t.search(); t.mark(); t.info(); t.deliver(rec::RawBuilder(KIVO_PRIM_RESULT));
                         t.deliver(rec::RawBuilder(KIVO_PRIM_TIMER))),
     "Result:525 strResult \n~0 finished 1\nTimeout:676 query 0 finished by timer\n~0 released\n"},
    {"TimerAndReply", DO(uiQueryId = 7; t.search(); t.mark(); t.info();
                         t.deliver(rec::RawBuilder(KIVO_PRIM_TIMER).u32(7));
                         t.deliver(rec::RawBuilder(KIVO_PRIM_RESULT).str("{\"queryId\": 99, \"type\": 3}"))),
     "~0 finished 1\nTimeout:676 query 7 finished by timer\n~0 released\nResult:525 strResult \n{\"queryId\": 99, \"type\": 3}%\n"
     "Result:543 abort: invalid id 63\n"},
};

INSTANTIATE_TEST_SUITE_P(Startup, TranscriptTest, ::testing::ValuesIn(rows), rowName);

const Row exported[] = {
    {"Enabled", DO(everyCall(t, 0, true)), "* timer 67 5000 0x00000002/0/0 u32 0\n"
     "* ipc webconfd@Local from '' 0x00000000/0/136 json {'offset':0,'params':{'data':'W','kind':'contact','type':1},'queryId':0,'size':100,'userId':''}\n"
     "* timer 67 5000 0x00000002/0/0 u32 1\n"
     "* ipc webconfd@Local from NULL 0x00830001/0/477 json {'offset':0,'params':{'data':{'backend':'source','company':'','entries':[],'extraText1':'','extraText2':'','extraText3':'','extraText4':'','extraText5':'','extraText6':'','extraText7':'','firstName':'','lastName':'Wefer','numbers':[],'text3':'93337','text7':'','uid':'u-1'},'kind':'contact','type':5},'queryId':1,'size':0,'userId':''}\n"
     "* timer 67 5000 0x00000002/0/0 u32 2\n"
     "* ipc webconfd@Local from NULL 0x00830001/0/136 json {'offset':0,'params':{'data':'u-1','kind':'contact','type':6},'queryId':2,'size':0,'userId':''}\n"
     "* timer 67 5000 0x00000002/0/0 u32 3\n"
     "* ipc webconfd@Local from NULL 0x00830001/0/272 json {'offset':0,'params':{'data':{'backend':'source','duration':0,'kind':0,'name':'','number':'0711','timestamp':0,'uid':'ev-1'},'kind':'event','type':2},'queryId':3,'size':0,'userId':''}\n"
     "* timer 67 5000 0x00000002/0/0 u32 4\n"
     "* ipc webconfd@Local from NULL 0x00830001/0/135 json {'offset':0,'params':{'data':'ev-1','kind':'event','type':3},'queryId':4,'size':0,'userId':''}\n"},
    {"SwitchedOffAndTraced", DO(KIVO_DebugSet("exp", 1); EXPECT_EQ(KIVO_SetIfcEnable(0), 0); everyCall(t, 1, false)),
     "KIVO_DebugSet pName exp  iValue 1\nKIVO_ExpQuery  searchMode 1\n* log kivoexp:KIVO_ExpQuery:94 kivo-interface disabled\n~0 requestFinished\n"
     "~0 released\nKIVO_ExpAddContact  pContact (nil)\n* log kivoexp:KIVO_ExpAddContact:111 kivo-interface disabled\nKIVO_ExpDelContact  pContact (nil)\n"
     "* log kivoexp:KIVO_ExpDelContact:127 kivo-interface disabled\nKIVO_ExpAddEvent  pEvent (nil)\n"
     "* log kivoexp:KIVO_ExpAddEvent:143 kivo-interface disabled\nKIVO_ExpDelEvent  pEvent (nil)\n* log kivoexp:KIVO_ExpDelEvent:159 kivo-interface disabled\n"},
    {"AnyOtherValueEnables", DO(KIVO_SetIfcEnable(5); EXPECT_EQ(KIVO_GetIfcEnable(), 5); KIVO_DumpDb();
                                Event event; EXPECT_EQ(KIVO_ExpDelEvent(&event), 0)),
     "kivo\n'--iIfcEnable        5\n* timer 67 5000 0x00000002/0/0 u32 0\n"
     "* ipc webconfd@Local from NULL 0x00830001/0/131 json {'offset':0,'params':{'data':'','kind':'event','type':3},'queryId':0,'size':0,'userId':''}\n"},
    /* Null records go to the manager, which drops them; no client, no search. */
    {"Traced", DO(KIVO_DebugSet("exp", 1); everyCall(t, 0, false);
                  EXPECT_EQ(KIVO_ExpQuery(boost::shared_ptr<AbstractQueryClient>(), SearchBackends), -1)),
     "KIVO_DebugSet pName exp  iValue 1\nKIVO_ExpQuery  searchMode 1\n* timer 67 5000 0x00000002/0/0 u32 0\n"
     "* ipc webconfd@Local from '' 0x00000000/0/136 json {'offset':0,'params':{'data':'W','kind':'contact','type':1},'queryId':0,'size':100,'userId':''}\n"
     "KIVO_ExpAddContact  pContact (nil)\nKIVO_AddContact  pContact (nil)\nKIVO_ExpDelContact  pContact (nil)\nKIVO_DelContact  pContact (nil)\n"
     "KIVO_ExpAddEvent  pEvent (nil)\nKIVO_AddEvent  pEvent (nil)\nKIVO_ExpDelEvent  pEvent (nil)\nKIVO_DelEvent  pEvent (nil)\nKIVO_ExpQuery  searchMode 1\n"
     "* error kivoexp:KIVO_ExpQuery:91 no query client\n"},
    {"LevelsByWholeName", DO(KIVO_DebugSet("info", 1); KIVO_DebugSet("exp", -1); KIVO_DebugSet("INFO", 0);
                             KIVO_DebugSet("ex", 1); KIVO_DebugSet(nullptr, 1); KIVO_DebugDump()),
     "KIVO_DebugSet pName info  iValue 1\nKIVO_DebugSet pName exp  iValue -1\nKIVO_DebugSet pName INFO  iValue 0\nKIVO_DebugSet pName ex  iValue 1\n"
     "KIVO_DebugSet pName   iValue 1\nKIVO_DebugDump\nidx name       status\n----------------------\n 0  exp        0\n 1  info       1\n"},
};

INSTANTIATE_TEST_SUITE_P(Exported, TranscriptTest, ::testing::ValuesIn(exported), rowName);

}  // namespace
