/*
 * Replies in C++ where a step of tests/transcripts cannot say it: a client
 * that searches again from its end, and the pieces of a long trace.
 */
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

}  // namespace
