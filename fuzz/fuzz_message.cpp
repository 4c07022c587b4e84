/*
 * Fuzz target: raw received message blocks given to the platform's message
 * reader (CManMessage::Assign, getU32, getString, Dump) and to the kivo
 * task's message switch.
 *
 * Input: one plan byte, then the message bytes. The reader's verdict and
 * every field it reads are compared with a decoder written here from the
 * wire format (manmsg.h); the plan chooses which reads are made, including
 * reads of the wrong type and past the end. With bit 7 of the plan the
 * block is handed to the started module's task callback instead, which must
 * release it exactly once.
 */
#include <cstring>
#include <string>
#include <vector>

#include "harness.h"
#include "kivoglob.h"
#include "platform/manmsg.h"
#include "platform/mantask.h"
#include "platform/recording.h"
#include "platform/standin.h"

namespace {

struct RefField {
    bool isU32;
    uint32_t u32;
    std::string str;
};

uint32_t be32(const uint8_t* p)
{
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | uint32_t(p[3]);
}

/* The wire format: primitive:u32 { 0x01 u32 | 0x02 len:u32 byte[len] }. */
bool refDecode(const uint8_t* p, std::size_t n, std::vector<RefField>* fields)
{
    if (n < 4 || n > MAN_MAX_MSG)
        return false;
    std::size_t pos = 4;
    while (pos < n) {
        if (n - pos < 5)
            return false;
        const uint8_t tag = p[pos];
        const uint32_t v = be32(p + pos + 1);
        pos += 5;
        if (tag == MAN_TAG_U32) {
            fields->push_back({true, v, std::string()});
        } else if (tag == MAN_TAG_STRING) {
            if (v > n - pos)
                return false;
            fields->push_back({false, 0, std::string(reinterpret_cast<const char*>(p + pos), v)});
            pos += v;
        } else {
            return false;
        }
    }
    return true;
}

void readerCheck(uint8_t plan, const std::vector<uint8_t>& bytes)
{
    void* raw = rec::makeRaw(bytes);
    FUZZ_CHECK(raw != nullptr);

    std::vector<RefField> fields;
    const bool valid = refDecode(bytes.data(), bytes.size(), &fields);
    {
        CManMessage msg;
        FUZZ_CHECK((msg.Assign(raw) == MAN_OK) == valid);
        if (valid) {
            FUZZ_CHECK(msg.length() == bytes.size());
            FUZZ_CHECK(std::memcmp(msg.data(), bytes.data(), bytes.size()) == 0);
            /* Right-type reads follow the reference; a wrong-type read gives
             * nothing and marks the reader, and so does reading past the end. */
            bool failed = false;
            std::size_t next = 0;
            for (int step = 0; step < 6 && next <= fields.size(); step++) {
                const bool wrongType = (plan >> step) & 1;
                const bool wantU32 = next < fields.size() ? fields[next].isU32 != wrongType : wrongType;
                if (wantU32) {
                    const unsigned int v = msg.getU32();
                    if (next < fields.size() && fields[next].isU32) {
                        FUZZ_CHECK(v == fields[next].u32);
                    } else {
                        FUZZ_CHECK(v == 0);
                        failed = true;
                    }
                } else {
                    const std::string s = msg.getString();
                    if (next < fields.size() && !fields[next].isU32) {
                        FUZZ_CHECK(s == fields[next].str);
                    } else {
                        FUZZ_CHECK(s.empty());
                        failed = true;
                    }
                }
                FUZZ_CHECK(msg.readFailed() == failed);
                if (failed)
                    break;
                next++;
            }
            msg.Dump();

            /* Writing the fields read gives the same bytes back. */
            CManMessage out;
            FUZZ_CHECK(out.Create(be32(bytes.data()), 0, static_cast<int>(bytes.size())) == MAN_OK);
            for (const RefField& f : fields)
                FUZZ_CHECK((f.isU32 ? out.addU32(f.u32) : out.addString(f.str)) == MAN_OK);
            FUZZ_CHECK(out.length() == bytes.size());
            FUZZ_CHECK(std::memcmp(out.data(), bytes.data(), bytes.size()) == 0);
            out.Delete();
        }
    }
    MAN_ExpPFree(raw);
    FUZZ_CHECK(rec::releaseCount(raw) == 1);
}

void moduleCheck(const std::vector<uint8_t>& bytes)
{
    moduleStart();
    void* raw = rec::makeRaw(bytes);
    FUZZ_CHECK(raw != nullptr);
    const unsigned int primitive = bytes.size() >= 4 ? be32(bytes.data()) : 0;
    FUZZ_CHECK(rec::deliver(KIVO_TASK_INDEX, MAN_EVENT_MESSAGE, primitive, raw));
    FUZZ_CHECK(rec::releaseCount(raw) == 1);
    FUZZ_CHECK(rec::liveRaws() == 0);
    moduleStop();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0 || size - 1 > MAN_MAX_MSG)
        return 0;
    const uint8_t plan = data[0];
    const std::vector<uint8_t> bytes(data + 1, data + size);
    if (plan & 0x80)
        moduleCheck(bytes);
    else
        readerCheck(plan, bytes);
    rec::reset();
    return 0;
}
