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
    ASSERT_EQ(KIVO_ExpInit(), 0);
    ASSERT_TRUE(rec::deliver(KIVO_TASK_INDEX, MAN_EVENT_CONTROL, MAN_PRIM_START, nullptr));
    ASSERT_NE(pBackend.load(), nullptr);
}

void KivoTest::reply(const std::string& text)
{
    void* raw = rec::RawBuilder(KIVO_PRIM_RESULT).str(text).build();
    ASSERT_TRUE(rec::deliver(KIVO_TASK_INDEX, MAN_EVENT_MESSAGE, KIVO_PRIM_RESULT, raw));
}

void KivoTest::reply(unsigned int queryId, int type, int total, const Json::Value& items)
{
    reply(replyText(queryId, type, total, items));
}

bool KivoTest::expire(unsigned int queryId)
{
    const auto& timers = rec::recorder().timers;
    for (std::size_t i = 0; i < timers.size(); i++)
        if (!timers[i].fired && timers[i].msg.u32(0) == queryId)
            return rec::fireTimer(i);
    return false;
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
    Json::Value root;
    if (n >= ipc.size())
        return root;
    std::string errors;
    const std::string& text = ipc[n].msg.string(0);
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    reader->parse(text.data(), text.data() + text.size(), &root, &errors);
    return root;
}
