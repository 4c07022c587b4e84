/*
 * Replies and timers: deliveries, best match, the end of a query by reply
 * or timer, acknowledgements, invalid types and ids, the cache-clear
 * notice, and text that is not a reply.
 */
#include <pthread.h>

#include <functional>
#include <numeric>

#include "kivo_fixture.h"

using namespace ZEMBRA::Phonebook;

namespace {

/* Three change requests, ids 0 to 2. */
void changes(KivoTest& t)
{
    Contact contact;
    Event event;
    t.backend().addContact(&contact);
    t.backend().deleteEvent(&event);
    t.backend().addEvent(&event);
    t.mark();
}

/* Searches again when its search ends: the module holds no lock while it
 * calls a client. */
struct Chaining : FakeClient {
    Chaining() : FakeClient(NameAlpha, Json::Value("W")) {}
    void requestFinished() override
    {
        FakeClient::requestFinished();
        KIVO_ExpQuery(boost::shared_ptr<FakeClient>(new FakeClient(Number, Json::Value("0"))), SearchBackends);
    }
};

const Row rows[] = {
    {"ContactsThenTheEnd", DO(t.search(NameAlpha, Json::Value("We")); t.search(); t.mark();
                              t.reply(0, Contacts, 3, items({"A", "B"})); t.reply(0, Contacts, 3, items({"C"}));
                              t.info();
                              t.reply(0, Contacts, 3); t.reply(1, Contacts, 0); t.expire(0)),
     "~0 contact A uid-A vornsyn 1 'We' 3\n~0 contact B uid-B vornsyn 1 'We' 3\n~0 contact C uid-C vornsyn 1 'We' 3\nResult:525 strResult \n<reply>\n"
     "~0 finished 0\nResult:591 query 0 finished\n~0 released\nResult:525 strResult \n<reply>\n~1 finished 1\nResult:591 query 1 finished\n~1 released\n"
     "* fire 0\n"},
    {"BestMatchAtTheThreshold", DO(t.search(Number, Json::Value("0711"), true); t.mark();
                                   t.reply(0, Contacts, 4, items({"A/abcd", "B/ab", "C/abc", "D/abcd"}));
                                   t.reply(0, Contacts, 4)),
     "~0 contact A uid-A vornsyn 1 '0711' 4\n~0 finished 0\n~0 released\n"},
    {"BestMatchBelowTheThreshold", DO(t.search(Number, Json::Value("0711"), true);
                                      t.search(Number, Json::Value("0711"), true); t.mark();
                                      t.reply(0, Contacts, 5, items({"A/ab"})); t.reply(0, Contacts, 5); t.reply(1, Contacts, 5)),
     "~0 contact A uid-A vornsyn 1 '0711' 5\n~0 finished 0\n~0 released\n~1 finished 1\n~1 released\n"},
    {"BestMatchTotalOne", DO(t.search(Number, Json::Value("0711"), true); t.mark();
                             t.reply(0, Contacts, 1, items({"A", "B/abcde", "C/abc"})); t.reply(0, Contacts, 1)),
     "~0 contact A uid-A vornsyn 1 '0711' 1\n~0 contact B uid-B vornsyn 1 '0711' 1\n~0 contact B uid-B vornsyn 1 '0711' 1\n~0 finished 0\n~0 released\n"},
    /* Records go by their type, whatever the search; the count is shared. */
    {"EventsAndFolders", DO(t.search(EventRange, Json::Value()); t.search(FolderList, Json::Value(), true);
                            t.search(FolderList, Json::Value()); t.mark();
                            t.reply(0, Events, 0, items({"E"})); t.reply(1, Folders, 0, items({"F"}));
                            t.reply(1, Events, 0, items({"E"})); t.info(); t.reply(0, Events, 0);
                            t.reply(1, Contacts, 3); t.reply(2, Folders, 0, items({"F"})); t.reply(2, Folders, 1)),
     "~0 event  uid-E vornsyn 1\n~1 folder  uid-F vornsyn 1\n~1 event  uid-E vornsyn 1\nResult:525 strResult \n<reply>\nResult:606\n~0 finished 0\n"
     "Result:613 query 0 finished\n~0 released\nResult:525 strResult \n<reply>\n~1 contact    1 '' 3\n~1 finished 0\nResult:591 query 1 finished\n"
     "~1 released\nResult:525 strResult \n<reply>\n~2 folder  uid-F vornsyn 1\nResult:525 strResult \n<reply>\nResult:629\n~2 finished 0\n"
     "Result:636 query 2 finished\n~2 released\n"},
    {"ChangesIgnoreRecordsAndEnd", DO(changes(t); t.info(); t.reply(0, Contacts, 1, items({"A"}));
                                      t.reply(0, Contacts, 0); t.reply(1, Events, 0); t.reply(2, Folders, 0)),
     "Result:525 strResult \n<reply>\nResult:560 records for change request 0 dropped\nResult:525 strResult \n<reply>\nResult:588 NULL\n"
     "Result:591 query 0 finished\nResult:525 strResult \n<reply>\nResult:610 NULL\nResult:613 query 1 finished\nResult:525 strResult \n<reply>\n"
     "Result:633 NULL\nResult:636 query 2 finished\n"},
    {"Acknowledgements", DO(Contact contact; t.backend().addContact(&contact); t.search(); t.mark(); t.info();
                            t.reply(0, Acknowledge, 0); t.reply(1, Acknowledge, 0)),
     "Result:525 strResult \n<reply>\nResult:642 acknowledge\nResult:525 strResult \n<reply>\nResult:642 acknowledge\n~0 finished 1\n~0 released\n"},
    {"InvalidTypes", DO(t.search(); t.mark(); t.info(); t.reply(0, 4, 0); t.reply(0, ConfigChanged, 0);
                        t.reply(0, 99, 0); t.reply(0, -1, 0); t.expire(0)),
     "Result:525 strResult \n<reply>\nResult:651 abort: invalid type\nResult:525 strResult \n<reply>\nResult:651 abort: invalid type\nResult:525 strResult \n"
     "<reply>\nResult:651 abort: invalid type\nResult:525 strResult \n<reply>\nResult:651 abort: invalid type\n* fire 0\n~0 finished 1\n"
     "Timeout:676 query 0 finished by timer\n~0 released\n"},
    {"UnknownIds", DO(t.info(); t.reply(0x1234, Contacts, 1, items({"A"})); t.reply(0xAB, ConfigChanged, 0)),
     "Result:525 strResult \n<reply>\nResult:543 abort: invalid id 1234\nResult:525 strResult \n<reply>\n* local 64 0x00840002/0/32\n"
     "Result:543 abort: invalid id ab\n"},
    {"NoticeQuietOrNotMade", DO(t.reply(7, ConfigChanged, 0); rec::failNext(PltFault::Create, 6);
                                t.reply(3, ConfigChanged, 0)),
     "* local 64 0x00840002/0/32\n* create 0x00840002/0/32\n* log kivomain:ClaerCache_NotifyConfigChangeMessage:507 send failed iRetCode 6\n"},
    {"TimerEndsTheSearch", DO(t.search(); t.search(); t.mark(); t.reply(1, Contacts, 2, items({"A"})); t.info();
                              PbBackend::QueryState q; EXPECT_TRUE(t.backend().lookup(1, &q) && q.resultCount == 1);
                              q.client.reset(); EXPECT_EQ(t.backend().openIds(), (std::vector<unsigned int>{0, 1}));
                              t.expire(0); t.expire(1); t.reply(1, Contacts, 1);
                              EXPECT_FALSE(t.backend().lookup(1, nullptr))),
     "~1 contact A uid-A vornsyn 1 'W' 2\n* fire 0\n~0 finished 1\nTimeout:676 query 0 finished by timer\n~0 released\n* fire 1\n~1 finished 0\n"
     "Timeout:676 query 1 finished by timer\n~1 released\nResult:525 strResult \n<reply>\nResult:543 abort: invalid id 1\n"},
    {"TimerEndsAChange", DO(changes(t); t.expire(2); t.info(); t.expire(0); t.backend().Timeout(9)),
     "* fire 2\n* fire 0\nTimeout:676 query 0 finished by timer\n"},
    {"CallbackSearchesAgain", DO(t.backend().startQuery(boost::shared_ptr<FakeClient>(new Chaining())); t.mark();
                                 t.reply(0, Contacts, 0); t.reply(1, Contacts, 0)),
     "~0 finished 1\n* timer 67 5000 0x00000002/0/0 u32 1\n"
     "* ipc webconfd@Local from '' 0x00000000/0/136 json {'offset':0,'params':{'data':'0','kind':'contact','type':1},'queryId':1,'size':100,'userId':''}\n"
     "~0 released\n~1 finished 1\n~1 released\n"},
    /* Text that is not a reply changes nothing (one nested too deep is logged);
     * the reader reads on. */
    {"NotAReply", DO(t.search(); t.mark(); t.reply(""); t.reply("not json"); t.reply("{\"queryId\": 0, \"items\": [");
                     t.reply(std::string(5000, '[') + std::string(5000, ']')); t.reply("\xFF\xFE{");
                     t.reply(0, Contacts, 1, items({"A"}))),
     "* error kivomain:Result:527 reply nested deeper than 64 levels dropped\n~0 contact A uid-A vornsyn 1 'W' 1\n"},
};

INSTANTIATE_TEST_SUITE_P(Result, TranscriptTest, ::testing::ValuesIn(rows), rowName);

class ResultTest : public KivoTest {};

/* A long reply is traced in at most ten pieces of 992 bytes. */
TEST_F(ResultTest, LongReplyIsTracedInTenPieces)
{
    std::vector<std::string> pieces = {"Result:525 strResult \n"};
    for (char c = 'a'; c <= 'l'; c++)
        pieces.push_back(std::string(992, c));
    info();
    reply(std::accumulate(pieces.begin() + 1, pieces.end(), std::string()));
    EXPECT_EQ(rec::recorder().terminal, std::vector<std::string>(pieces.begin(), pieces.begin() + 11));
}

/* Runs `work` on a thread with a stack of `bytes`, as small as the
 * firmware's threads; false when no such thread could be made. */
bool onSmallStack(std::size_t bytes, std::function<void()> work)
{
    pthread_attr_t attr;
    pthread_t thread;
    auto run = [](void* w) -> void* { (*static_cast<std::function<void()>*>(w))(); return nullptr; };
    bool made = pthread_attr_init(&attr) == 0 && pthread_attr_setstacksize(&attr, bytes) == 0 &&
                pthread_create(&thread, &attr, run, &work) == 0;
    pthread_attr_destroy(&attr);
    return made && pthread_join(thread, nullptr) == 0;
}

/* A reply of query 0 with one contact and a member "x" holding `arrays`
 * nested arrays, or a string of `arrays` brackets. */
std::string replyWith(const char* name, int arrays, bool quoted = false)
{
    const std::string x = quoted ? "\"\\\"" + std::string(arrays, '[') + "\""
                                 : std::string(arrays, '[') + std::string(arrays, ']');
    return "{\"x\":" + x + "," + replyText(0, Contacts, 1, items({name})).substr(1);
}

/* Replies nest four levels deep; one nested deeper than 64 levels is
 * dropped before the reader recurses into it, so it cannot overflow a
 * task's 256 KiB stack. Brackets inside strings are no nesting. */
TEST_F(ResultTest, DeepRepliesAreDroppedUnreadOnASmallStack)
{
    std::string objects;
    for (int i = 0; i < 999; i++)
        objects += "{\"a\":";
    objects += "1" + std::string(999, '}');
    search();
    mark();
    ASSERT_TRUE(onSmallStack(256 * 1024, [&] {
        reply(std::string(999, '[') + std::string(999, ']'));
        reply(objects);
        reply(replyWith("Deep", 64));      /* 65 levels with the reply's object */
        reply(replyWith("Bound", 63));     /* 64 levels */
        reply(replyWith("Quoted", 999, true));
    }));
    EXPECT_EQ(transcript(), "* error kivomain:Result:527 reply nested deeper than 64 levels dropped\n"
                            "* error kivomain:Result:527 reply nested deeper than 64 levels dropped\n"
                            "* error kivomain:Result:527 reply nested deeper than 64 levels dropped\n"
                            "~0 contact Bound uid-Bound vornsyn 1 'W' 1\n"
                            "~0 contact Quoted uid-Quoted vornsyn 1 'W' 1\n");
}

}  // namespace
