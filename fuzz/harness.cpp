/*
 * The fuzz targets' module frame on the recording platform.
 */
#include "harness.h"

#include <memory>

#include "kivoglob.h"
#include "pbbackend.h"
#include "platform/recording.h"
#include "module_support.h"

using namespace ZEMBRA::Phonebook;

std::atomic<int> FuzzClient::alive{0};

FuzzClient::FuzzClient(QueryMode mode, const Json::Value& value, bool bestMatch)
{
    parameters.mode = mode;
    parameters.value = value;
    parameters.offset = 0;
    parameters.size = 100;
    bestMatchOnly = bestMatch;
    alive++;
}

FuzzClient::~FuzzClient()
{
    alive--;
}

void FuzzClient::requestFinished()
{
    FUZZ_CHECK(finishedCalls == 0);
    finishedCalls++;
    if (onFinished != nullptr)
        onFinished();
}

void FuzzClient::delivery()
{
    FUZZ_CHECK(finishedCalls == 0);
    delivered++;
}

void FuzzClient::addContact(const Contact&, CacheInfo info)
{
    FUZZ_CHECK(info == CacheRemote);
    delivery();
}

void FuzzClient::addContact(const Contact& c, CacheInfo info, const std::string&, int)
{
    FUZZ_CHECK(info == CacheRemote);
    /* Every contact comes from a reply, which sets its backend. The one
     * exception: events or folders answered to a best-match contact search
     * are its records too, and its end may then hand over the empty work
     * contact (docs/reliability.md, findings). */
    if (c.backend != "vornsyn")
        FUZZ_CHECK(bestMatchOnly && otherRecords > 0 && c.backend.empty() && c.uid.empty() && c.numbers.empty());
    delivery();
}

void FuzzClient::addEvent(const Event& e, CacheInfo info)
{
    FUZZ_CHECK(info == CacheRemote);
    FUZZ_CHECK(e.backend == "vornsyn");
    otherRecords++;
    delivery();
}

void FuzzClient::addFolder(const Folder& f, CacheInfo info)
{
    FUZZ_CHECK(info == CacheRemote);
    FUZZ_CHECK(f.backend == "vornsyn");
    otherRecords++;
    delivery();
}


void moduleStart()
{
    resetModule();
    rec::reset();
    FUZZ_CHECK(KIVO_ExpInit() == 0);
    FUZZ_CHECK(rec::deliver(KIVO_TASK_INDEX, MAN_EVENT_CONTROL, MAN_PRIM_START, nullptr));
    FUZZ_CHECK(pBackend.load() != nullptr);
}

void moduleStop()
{
    resetModule();
    FUZZ_CHECK(rec::liveRaws() == 0);
    FUZZ_CHECK(rec::recorder().badReleases == 0);
    rec::reset();
}

void deliverReply(const std::string& text)
{
    void* raw = rec::RawBuilder(KIVO_PRIM_RESULT).str(text).build();
    FUZZ_CHECK(raw != nullptr);
    FUZZ_CHECK(rec::deliver(KIVO_TASK_INDEX, MAN_EVENT_MESSAGE, KIVO_PRIM_RESULT, raw));
    FUZZ_CHECK(rec::releaseCount(raw) == 1);
}

void deliverReply(unsigned int queryId, int type, int total, const Json::Value& items)
{
    deliverReply(replyText(queryId, type, total, items));
}

bool fireTimerOf(unsigned int queryId)
{
    for (std::size_t i = 0, n = rec::timerCount(); i < n; i++) {
        const rec::TimerArm& t = rec::recorder().timers[i];
        if (!t.fired && t.msg.u32(0) == queryId)
            return rec::fireTimer(i);
    }
    return false;
}

Json::Value parseJson(const std::string& text)
{
    Json::Value root;
    std::string errors;
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    if (!reader->parse(text.data(), text.data() + text.size(), &root, &errors))
        return Json::Value();
    return root;
}

std::vector<std::string> splitInput(const uint8_t* data, std::size_t size, char separator, std::size_t maxParts)
{
    std::vector<std::string> parts;
    const char* p = reinterpret_cast<const char*>(data);
    std::size_t start = 0;
    for (std::size_t i = 0; i < size && parts.size() + 1 < maxParts; i++) {
        if (p[i] == separator) {
            parts.emplace_back(p + start, i - start);
            start = i + 1;
        }
    }
    parts.emplace_back(p + start, size - start);
    return parts;
}
