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
    FUZZ_CHECK(startModule());
}

void moduleStop()
{
    resetModule();
    FUZZ_CHECK(rec::liveRaws() == 0);
    FUZZ_CHECK(rec::recorder().badReleases == 0);
    rec::reset();
}

void deliverReplyChecked(const std::string& text)
{
    FUZZ_CHECK(deliverReply(text));
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
