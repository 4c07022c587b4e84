/* Fuzz target: capture files -> capture::Reader. Every input ends with the
 * end of the file or an error naming the file header or the record at
 * fault; every record read is within the format's bounds. */
#include <string>

#include "check.h"
#include "platform/capture.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    capture::Reader reader;
    std::string error;
    if (!reader.openMemory(data, size, error)) {
        FUZZ_CHECK(error.compare(0, 13, "file header: ") == 0);
        return 0;
    }
    capture::Record r;
    for (unsigned long n = 1;; n++) {
        const capture::Reader::Result result = reader.next(r, error);
        if (result == capture::Reader::End)
            return 0;
        if (result == capture::Reader::Error) {
            const std::string prefix = "record " + std::to_string(n) + ": ";
            FUZZ_CHECK(error.compare(0, prefix.size(), prefix) == 0);
            return 0;
        }
        FUZZ_CHECK(r.number == n && r.source.size() <= capture::MAX_ADDRESS &&
                   r.destination.size() <= capture::MAX_ADDRESS && r.payload.size() <= capture::MAX_PAYLOAD &&
                   static_cast<unsigned>(r.kind) >= 1 && static_cast<unsigned>(r.kind) <= capture::LAST_KIND);
    }
}
