/* Fuzz target: a raw message block after a plan byte. The platform's reader must
 * agree with a decoder written from the wire format (plan bits 0-6: wrong-type
 * reads); with bit 7 the kivo task gets it and must release it exactly once. */
#include <cstring>

#include "harness.h"

static uint32_t be32(const uint8_t* p) { return uint32_t(p[0]) << 24 | p[1] << 16 | p[2] << 8 | p[3]; }

/* primitive:u32 { 0x01 u32 | 0x02 length:u32 byte[length] } */
static bool decode(const std::vector<uint8_t>& b, std::vector<rec::Field>* fields)
{
    std::size_t pos = 4;
    for (std::size_t length; pos + 5 <= b.size(); pos += 5 + length) {
        const bool isU32 = b[pos] == MAN_TAG_U32;
        length = isU32 ? 0 : be32(&b[pos + 1]);
        if ((!isU32 && b[pos] != MAN_TAG_STRING) || length > b.size() - pos - 5)
            return false;
        fields->push_back({isU32, be32(&b[pos + 1]), std::string(b.data() + pos + 5, b.data() + pos + 5 + length)});
    }
    return pos == b.size() && b.size() <= MAN_MAX_MSG;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0 || size - 1 > MAN_MAX_MSG)
        return 0;
    const std::vector<uint8_t> bytes(data + 1, data + size);
    FUZZ_CHECK(!(data[0] & 0x80) || startModule());
    void* raw = rec::makeRaw(bytes);
    if (data[0] & 0x80) {
        FUZZ_CHECK(rec::deliver(KIVO_TASK_INDEX, MAN_EVENT_MESSAGE, bytes.size() >= 4 ? be32(bytes.data()) : 0, raw));
    } else {
        std::vector<rec::Field> fields;
        const bool valid = decode(bytes, &fields);
        CManMessage msg;
        FUZZ_CHECK((msg.Assign(raw) == MAN_OK) == valid);
        FUZZ_CHECK(!valid || (Platform::length(msg) == bytes.size() &&
                              std::memcmp(Platform::data(msg), bytes.data(), bytes.size()) == 0));
        /* A read of the wrong type or past the end gives nothing and marks the reader. */
        for (std::size_t i = 0; valid && !Platform::readFailed(msg); i++) {
            const bool u32 = i < fields.size() ? fields[i].isU32 != ((data[0] >> (i % 7)) & 1) : data[0] & 1;
            const bool ok = i < fields.size() && u32 == fields[i].isU32;
            FUZZ_CHECK(u32 ? msg.getU32() == (ok ? fields[i].u32 : 0) : msg.getString() == (ok ? fields[i].str : ""));
            FUZZ_CHECK(Platform::readFailed(msg) == !ok);
        }
        msg.Dump();
        MAN_ExpPFree(raw);
    }
    FUZZ_CHECK(rec::releaseCount(raw) == 1);
    moduleStop();
    return 0;
}
