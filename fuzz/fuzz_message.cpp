/*
 * Fuzz target: a raw received message block, after a plan byte, given to the
 * platform's message reader or, with bit 7 of the plan, to the kivo task,
 * which must release it exactly once. The reader's verdict and every field it
 * reads must match a decoder written here from the wire format; the plan's
 * low bits choose reads of the wrong type, and the last read is past the end.
 */
#include <cstring>

#include "harness.h"

namespace {

uint32_t be32(const uint8_t* p)
{
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | uint32_t(p[3]);
}

/* primitive:u32 { 0x01 u32 | 0x02 length:u32 byte[length] } */
bool decode(const std::vector<uint8_t>& b, std::vector<rec::Field>* fields)
{
    std::size_t pos = 4;
    while (pos + 5 <= b.size()) {
        const bool isU32 = b[pos] == MAN_TAG_U32;
        const uint32_t v = be32(&b[pos + 1]);
        const std::size_t length = isU32 ? 0 : v;
        pos += 5;
        if ((!isU32 && b[pos - 5] != MAN_TAG_STRING) || length > b.size() - pos)
            return false;
        fields->push_back({isU32, isU32 ? v : 0, std::string(b.begin() + pos, b.begin() + pos + length)});
        pos += length;
    }
    return pos == b.size() && b.size() <= MAN_MAX_MSG;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0 || size - 1 > MAN_MAX_MSG)
        return 0;
    const uint8_t plan = data[0];
    const std::vector<uint8_t> bytes(data + 1, data + size);
    if (plan & 0x80)
        FUZZ_CHECK(startModule());
    void* raw = rec::makeRaw(bytes);
    FUZZ_CHECK(raw != nullptr);
    if (plan & 0x80) {
        FUZZ_CHECK(rec::deliver(KIVO_TASK_INDEX, MAN_EVENT_MESSAGE, bytes.size() >= 4 ? be32(bytes.data()) : 0, raw));
    } else {
        std::vector<rec::Field> fields;
        const bool valid = decode(bytes, &fields);
        CManMessage msg;
        FUZZ_CHECK((msg.Assign(raw) == MAN_OK) == valid);
        FUZZ_CHECK(!valid || (msg.length() == bytes.size() && std::memcmp(msg.data(), bytes.data(), bytes.size()) == 0));
        /* A read of the wrong type or past the end gives nothing and marks the reader. */
        for (std::size_t i = 0; valid && !msg.readFailed(); i++) {
            const bool have = i < fields.size(), wrong = (plan >> (i % 7)) & 1;
            const bool u32 = have ? fields[i].isU32 != wrong : wrong;
            const bool ok = have && u32 == fields[i].isU32;
            if (u32)
                FUZZ_CHECK(msg.getU32() == (ok ? fields[i].u32 : 0));
            else
                FUZZ_CHECK(msg.getString() == (ok ? fields[i].str : std::string()));
            FUZZ_CHECK(msg.readFailed() == !ok);
        }
        msg.Dump();
        MAN_ExpPFree(raw);
    }
    FUZZ_CHECK(rec::releaseCount(raw) == 1);
    moduleStop();
    return 0;
}
