/*
 * Requests: what each search mode and each change sends, with its timer
 * and its traces, and what becomes of requests that cannot be made or sent.
 */
#include <stdexcept>

#include "kivo_fixture.h"

using namespace ZEMBRA::Phonebook;

namespace {

/* A record whose conversion fails, as a library's may. */
struct ThrowingContact : Contact {
    Json::Value toJson() const override { throw std::runtime_error("toJson"); }
};

const Row rows[] = {
    {"TracedSearch", DO(t.info(); boost::shared_ptr<FakeClient> c(new FakeClient(NameVanity, Json::Value("9333")));
                        c->parameters.offset = 3; c->parameters.size = 7; c->parameters.userId = "u1";
                        c->requestPrimitive = 0x00830005; c->sourceAddress = "ui@Local"; t.backend().startQuery(c)),
     "startQuery:182  QueryId 0\n* timer 67 5000 0x00000002/0/0 u32 0\nstartQuery:216  mode: NameVanity offset 3  size 7\nstartQuery:252 userid u1\n"
     "startQuery:267 strRequest <request>\n* create 0x00830005/0/139\nSource address: ui@Local Destination address: webconfd@Local\n"
     "* ipc webconfd@Local from 'ui@Local' 0x00830005 json {'offset':3,'params':{'data':'9333','kind':'contact','type':3},'queryId':0,'size':7,'userId':'u1'}\n"},
    {"TracedChanges", DO(t.info(); Contact contact("source", "u-17", "", "Tilmo", "Wefer", "H\xF6strand", boost::none);
                         contact.numbers.push_back(ContactNumber{"", "011122233344", "", "", 1, 2, -1});
                         Event event = makeEvent("source", "ev-3", EventMissed, "0711", "Wefer", 1700000000, 0);
                         t.backend().addContact(&contact); t.backend().deleteContact(&contact);
                         t.backend().addEvent(&event); t.backend().deleteEvent(&event)),
     "addContact:293\naddContact:294 contact->getLastName  Wefer\naddContact:295 contact->getFirstName Tilmo\n* timer 67 5000 0x00000002/0/0 u32 0\n"
     "addContact:324 strRequest <request>\n"
     "* ipc webconfd@Local from NULL 0x00830001/0/668 json {'offset':0,'params':{'data':{'backend':'source','company':'H\\u00f6strand','entries':[],'extraText1':'','extraText2':'','extraText3':'','extraText4':'','extraText5':'','extraText6':'','extraText7':'','firstName':'Tilmo','lastName':'Wefer','numbers':[{'number':'011122233344','text1':'','text3':'','text4':'','value1':1,'value2':2,'value3':-1}],'text3':'93337 84566','text7':'','uid':'u-17'},'kind':'contact','type':5},'queryId':0,'size':0,'userId':''}\n"
     "deleteContact:349\ndeleteContact:350 contact->getUid u-17\n* timer 67 5000 0x00000002/0/0 u32 1\ndeleteContact:378 strRequest <request>\n"
     "* ipc webconfd@Local from NULL 0x00830001/0/137 json {'offset':0,'params':{'data':'u-17','kind':'contact','type':6},'queryId':1,'size':0,'userId':''}\n"
     "addEvent:403\n* timer 67 5000 0x00000002/0/0 u32 2\naddEvent:432 strRequest <request>\n"
     "* ipc webconfd@Local from NULL 0x00830001/0/286 json {'offset':0,'params':{'data':{'backend':'source','duration':0,'kind':0,'name':'Wefer','number':'0711','timestamp':1700000000,'uid':'ev-3'},'kind':'event','type':2},'queryId':2,'size':0,'userId':''}\n"
     "deleteEvent:457\ndeleteEvent:458 event->getUid ev-3\n* timer 67 5000 0x00000002/0/0 u32 3\ndeleteEvent:486 strRequest <request>\n"
     "* ipc webconfd@Local from NULL 0x00830001/0/135 json {'offset':0,'params':{'data':'ev-3','kind':'event','type':3},'queryId':3,'size':0,'userId':''}\n"},
    {"NothingToSend", DO(t.info(); t.backend().startQuery(boost::shared_ptr<AbstractQueryClient>());
                         t.backend().addContact(nullptr); t.backend().deleteContact(nullptr);
                         t.backend().addEvent(nullptr); t.backend().deleteEvent(nullptr)),
     "* error kivomain:startQuery:180 no query client\n* error kivomain:addContact:290 no contact\n* error kivomain:deleteContact:346 no contact\n"
     "* error kivomain:addEvent:400 no event\n* error kivomain:deleteEvent:454 no event\n"},
    /* The timer's message is created first, the request's second; an entry
     * whose request was not sent waits for its timer. */
    {"RequestMessageFails", DO(Contact contact; Event event; rec::failNext(PltFault::Create, 3, 1); t.search();
                               rec::failNext(PltFault::Create, 4, 1); t.backend().addContact(&contact);
                               rec::failNext(PltFault::Create, 5, 1); t.backend().deleteContact(&contact);
                               rec::failNext(PltFault::Create, 6, 1); t.backend().addEvent(&event);
                               rec::failNext(PltFault::Create, 7, 1); t.backend().deleteEvent(&event);
                               t.expire(0); t.expire(4)),
     "* timer 67 5000 0x00000002/0/0 u32 0\n* create 0x00000000/0/136\n* error kivomain:startQuery:273 cMsg.Create failed\n\n"
     "* timer 67 5000 0x00000002/0/0 u32 1\n* create 0x00830001/0/458\n* error kivomain:addContact:330 cMsg.Create failed\n\n"
     "* timer 67 5000 0x00000002/0/0 u32 2\n* create 0x00830001/0/133\n* error kivomain:deleteContact:384 cMsg.Create failed\n\n"
     "* timer 67 5000 0x00000002/0/0 u32 3\n* create 0x00830001/0/258\n* error kivomain:addEvent:438 cMsg.Create failed\n\n"
     "* timer 67 5000 0x00000002/0/0 u32 4\n* create 0x00830001/0/131\n* error kivomain:deleteEvent:492 cMsg.Create failed\n\n* fire 0\n~0 finished 1\n"
     "~0 released\n* fire 4\n"},
    {"TimerMessageFails", DO(rec::failNext(PltFault::Create, 2); t.search(); EXPECT_EQ(KIVO_QueryTimer(9), 0)),
     "* create 0x00000002/0/0\n* error kivomain:KIVO_QueryTimer:816 cMsg.Create failed\n\n"
     "* ipc webconfd@Local from '' 0x00000000/0/136 json {'offset':0,'params':{'data':'W','kind':'contact','type':2},'queryId':0,'size':100,'userId':''}\n"
     "* timer 67 5000 0x00000002/0/0 u32 9\n"},
    {"OversizedRequest", DO(t.search(NameAlpha, Json::Value(std::string(MAN_MAX_MSG, 'x')))),
     "* timer 67 5000 0x00000002/0/0 u32 0\n* create 0x00000000/0/65671\n* error kivomain:startQuery:273 cMsg.Create failed\n\n"},
    {"CounterWraps", DO(uiQueryId = 0xFFFFFFFFu; t.search(); t.search()),
     "* timer 67 5000 0x00000002/0/0 u32 4294967295\n"
     "* ipc webconfd@Local from '' 0x00000000/0/145 json {'offset':0,'params':{'data':'W','kind':'contact','type':2},'queryId':4294967295,'size':100,'userId':''}\n"
     "* timer 67 5000 0x00000002/0/0 u32 0\n"
     "* ipc webconfd@Local from '' 0x00000000/0/136 json {'offset':0,'params':{'data':'W','kind':'contact','type':2},'queryId':0,'size':100,'userId':''}\n"},
    /* A failed conversion spends its id: the timer it armed finds no entry
     * and leaves the next query alone. */
    {"ConversionThrows", DO(ThrowingContact c; EXPECT_THROW(t.backend().addContact(&c), std::runtime_error); t.search();
                            t.info(); t.expire(0)), "* timer 67 5000 0x00000002/0/0 u32 0\n* timer 67 5000 0x00000002/0/0 u32 1\n"
     "* ipc webconfd@Local from '' 0x00000000/0/136 json {'offset':0,'params':{'data':'W','kind':'contact','type':2},'queryId':1,'size':100,'userId':''}\n"
     "* fire 0\n"},
    /* A repeated id (after the counter wrapped) replaces the entry. */
    {"RepeatedIdReplacesTheEntry", DO(t.search(); uiQueryId = 0; Contact contact; t.backend().addContact(&contact);
                                      t.info(); t.expire(0)), "* timer 67 5000 0x00000002/0/0 u32 0\n"
     "* ipc webconfd@Local from '' 0x00000000/0/136 json {'offset':0,'params':{'data':'W','kind':'contact','type':2},'queryId':0,'size':100,'userId':''}\n"
     "* timer 67 5000 0x00000002/0/0 u32 0\n~0 released\n"
     "* ipc webconfd@Local from NULL 0x00830001/0/458 json {'offset':0,'params':{'data':{'backend':'','company':'','entries':[],'extraText1':'','extraText2':'','extraText3':'','extraText4':'','extraText5':'','extraText6':'','extraText7':'','firstName':'','lastName':'','numbers':[],'text3':'','text7':'','uid':''},'kind':'contact','type':5},'queryId':0,'size':0,'userId':''}\n"
     "* fire 0\nTimeout:676 query 0 finished by timer\n"},
};

INSTANTIATE_TEST_SUITE_P(Request, TranscriptTest, ::testing::ValuesIn(rows), rowName);

/* Every other search mode: its trace, its parameter record and the
 * request's size. */
struct Mode { const char* name; int mode; const char* trace; const char* params; int size; };

class ModeTest : public KivoTest, public ::testing::WithParamInterface<Mode> {};

TEST_P(ModeTest, TracedRequest)
{
    const Mode& m = GetParam();
    info();
    search(static_cast<QueryMode>(m.mode));
    EXPECT_EQ(transcript(), std::string("startQuery:182  QueryId 0\n* timer 67 5000 0x00000002/0/0 u32 0\n") +
                                "startQuery:" +
                                m.trace + "  size 100\nstartQuery:252 userid \nstartQuery:267 strRequest <request>\n"
                                "* create 0x00000000/0/" + std::to_string(m.size) +
                                "\nSource address:  Destination address: webconfd@Local\n"
                                "* ipc webconfd@Local from '' 0x00000000 json {'offset':0,'params':" + m.params +
                                ",'queryId':0,'size':100,'userId':''}\n");
}

const Mode modes[] = {
    {"Id", ID, "204  mode: ID  offset 0", "{'data':'W','kind':'contact','type':0}", 136},
    {"Number", Number, "228  mode: Number  offset 0", "{'data':'W','kind':'contact','type':1}", 136},
    {"NameAlpha", NameAlpha, "210  mode: NameAlpha  offset 0", "{'data':'W','kind':'contact','type':2}", 136},
    {"Index", Index, "222  mode: Index  offset 0", "{'data':'W','kind':'contact','type':4}", 136},
    {"EventRange", EventRange, "234  mode: EventRange  offset 0", "{'data':'W','kind':'event','type':0}", 134},
    {"FolderList", FolderList, "240  mode: FolderList  offset 0", "{'data':'W','kind':'folder','type':0}", 135},
    {"Unknown", 7, "246  mode: unknown  offset 0", "null", 83},
};

INSTANTIATE_TEST_SUITE_P(Request, ModeTest, ::testing::ValuesIn(modes),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
