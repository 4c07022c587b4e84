/*
 * Test frame of the module's unit tests.
 */
#include "kivo_fixture.h"

#include "phonebook/latin1.h"
#include "module_support.h"

using namespace ZEMBRA::Phonebook;

std::atomic<int> FakeClient::alive{0};

FakeClient::FakeClient(QueryMode mode, const Json::Value& value)
{
    parameters.mode = mode;
    parameters.value = value;
    parameters.offset = 0;
    parameters.size = 100;
    alive++;
}

FakeClient::~FakeClient()
{
    alive--;
}

void KivoTest::SetUp()
{
    resetModule();
    rec::reset();
    FakeClient::alive = 0;
}

void KivoTest::TearDown()
{
    /* What a test leaves behind must be released with the module. */
    resetModule();
    EXPECT_EQ(FakeClient::alive, 0) << "a query client was never released";
    EXPECT_EQ(rec::liveRaws(), 0u) << "a received message was never released";
    EXPECT_EQ(rec::recorder().badReleases, 0);
    rec::reset();
}

void KivoTest::start()
{
    ASSERT_TRUE(startModule());
}

void KivoTest::reply(const std::string& text)
{
    ASSERT_TRUE(deliverReply(text));
}

void KivoTest::reply(unsigned int queryId, int type, int total, const Json::Value& items)
{
    reply(replyText(queryId, type, total, items));
}

bool KivoTest::expire(unsigned int queryId)
{
    return fireTimerOf(queryId);
}

boost::shared_ptr<FakeClient> KivoTest::search(QueryMode mode, const Json::Value& value, bool bestMatch)
{
    boost::shared_ptr<FakeClient> client(new FakeClient(mode, value));
    client->bestMatchOnly = bestMatch;
    backend().startQuery(client);
    return client;
}

Json::Value KivoTest::sentJson(std::size_t n) const
{
    const auto& ipc = rec::recorder().ipc;
    return n < ipc.size() ? parseJson(ipc[n].msg.string(0)) : Json::Value();
}
