/*
 * Replies in C++ where a step of tests/transcripts cannot say it: a client
 * that searches again from its end, the pieces of a long trace, deep
 * replies read on a thread with a small stack.
 */
#include <pthread.h>

#include <functional>
#include <numeric>

#include "kivo_fixture.h"

using namespace ZEMBRA::Phonebook;

namespace {

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

class ResultTest : public KivoTest {};

TEST_F(ResultTest, CallbackSearchesAgain)
{
    backend().startQuery(boost::shared_ptr<FakeClient>(new Chaining()));
    mark();
    reply(0, Contacts, 0);
    reply(1, Contacts, 0);
    expectTranscript({
        "~0 finished 1",
        "* timer 67 5000 0x00000002/0/0 u32 1",
        "* ipc webconfd@Local from '' 0x00000000/0/136 json "
        "{'offset':0,'params':{'data':'0','kind':'contact','type':1},'queryId':1,'size':100,'userId':''}",
        "~0 released",
        "~1 finished 1",
        "~1 released",
    });
}

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
    expectTranscript({
        "* error kivomain:Result:527 reply nested deeper than 64 levels dropped",
        "* error kivomain:Result:527 reply nested deeper than 64 levels dropped",
        "* error kivomain:Result:527 reply nested deeper than 64 levels dropped",
        "~0 contact Bound uid-Bound vornsyn 1 'W' 1",
        "~0 contact Quoted uid-Quoted vornsyn 1 'W' 1",
    });
}

}  // namespace
