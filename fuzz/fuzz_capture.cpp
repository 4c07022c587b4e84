/* Fuzz target: capture files -> capture::Reader. Every input ends with the end of the file or an error naming the
 * file header or the record at fault; every record read is within the format's bounds. */
#include "check.h"
#include "platform/capture.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    capture::Reader reader;
    capture::Record r;
    std::string error;
    bool more = reader.openMemory(data, size, error);
    FUZZ_CHECK(more || error.rfind("file header: ", 0) == 0);
    for (unsigned long n = 1; more; n++) {
        const capture::Reader::Result result = reader.next(r, error);
        more = result == capture::Reader::Next;
        FUZZ_CHECK(more || result == capture::Reader::End || error.rfind("record " + std::to_string(n) + ": ", 0) == 0);
        FUZZ_CHECK(!more || (r.number == n && r.source.size() <= capture::MAX_ADDRESS &&
                             r.destination.size() <= capture::MAX_ADDRESS && r.payload.size() <= capture::MAX_PAYLOAD &&
                             unsigned(r.kind) >= 1 && unsigned(r.kind) <= capture::LAST_KIND));
    }
    return 0;
}
