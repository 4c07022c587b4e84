// The message codec: wire layout, round trips, and refusal of malformed or
// oversized input.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "../platform/src/internal.h"
#include "platform/manmsg.h"

namespace {

using Bytes = std::vector<unsigned char>;

// A raw message block built by hand so the header can lie about the length;
// get() is the raw message as a task receives it.
struct Raw {
    std::vector<uint32_t> store;
    Raw(const Bytes& bytes, uint32_t length, uint32_t magic = plt::RAW_MAGIC)
        : store((sizeof(plt::RawMsg) + bytes.size() + 3) / 4)
    {
        auto* raw = reinterpret_cast<plt::RawMsg*>(store.data());
        raw->magic = magic;
        raw->length = length;
        raw->source[0] = '\0';
        if (!bytes.empty())
            std::memcpy(raw->bytes(), bytes.data(), bytes.size());
    }
    explicit Raw(const Bytes& bytes) : Raw(bytes, static_cast<uint32_t>(bytes.size())) {}
    void* get() { return plt::rawHandle(reinterpret_cast<plt::RawMsg*>(store.data())); }
};

Bytes bytesOf(const CManMessage& m)
{
    return Bytes(m.data(), m.data() + m.length());
}

TEST(Message, FieldsAreTaggedBigEndianAndComeBackInOrder)
{
    const std::string binary("a\0b\xff\x01", 5);
    CManMessage out;
    ASSERT_EQ(out.Create(0xdeadbeef, 0, 100), MAN_OK);
    ASSERT_EQ(out.addString(binary), MAN_OK);
    ASSERT_EQ(out.addU32(0x01020304), MAN_OK);
    ASSERT_EQ(out.addString(""), MAN_OK);
    ASSERT_EQ(out.addU32(0xffffffff), MAN_OK);
    EXPECT_EQ(bytesOf(out), (Bytes{0xde, 0xad, 0xbe, 0xef, 0x02, 0, 0, 0, 5, 'a', 0, 'b', 0xff, 0x01,
                                   0x01, 1, 2, 3, 4, 0x02, 0, 0, 0, 0, 0x01, 0xff, 0xff, 0xff, 0xff}));

    Raw raw(bytesOf(out));
    CManMessage in;
    ASSERT_EQ(in.Assign(raw.get()), MAN_OK);
    EXPECT_EQ(in.getString(), binary);
    EXPECT_EQ(in.getU32(), 0x01020304u);
    EXPECT_EQ(in.getString(), "");
    EXPECT_EQ(in.getU32(), 0xffffffffu);
    EXPECT_FALSE(in.readFailed());
}

TEST(Message, AMissingOrWrongFieldFailsStickilyWithoutMovingOn)
{
    CManMessage out;
    ASSERT_EQ(out.Create(1, 0, 0), MAN_OK);
    ASSERT_EQ(out.addU32(42), MAN_OK);
    Raw raw(bytesOf(out));
    CManMessage in;
    ASSERT_EQ(in.Assign(raw.get()), MAN_OK);
    EXPECT_EQ(in.getU32(), 42u);
    EXPECT_FALSE(in.readFailed());
    EXPECT_EQ(in.getString(), "");
    EXPECT_TRUE(in.readFailed()) << "past the end";

    ASSERT_EQ(in.Assign(raw.get()), MAN_OK);
    EXPECT_EQ(in.getString(), "");
    EXPECT_TRUE(in.readFailed()) << "a U32 is no string";
    EXPECT_EQ(in.getU32(), 42u) << "and was not skipped";
    EXPECT_TRUE(in.readFailed()) << "the failure stays";
}

TEST(Message, AssignRejectsMalformedRaws)
{
    CManMessage in;
    EXPECT_EQ(in.Assign(nullptr), MAN_E_FORMAT);
    Raw badMagic(Bytes{0, 0, 0, 1}, 4, 0x12345678);
    EXPECT_EQ(in.Assign(badMagic.get()), MAN_E_FORMAT);
    Raw tooLong(Bytes{0, 0, 0, 1}, static_cast<uint32_t>(MAN_MAX_MSG + 1));
    EXPECT_EQ(in.Assign(tooLong.get()), MAN_E_FORMAT);
    for (const Bytes& bytes : {
             Bytes{0, 0, 1},                                   // shorter than a primitive
             Bytes{0, 0, 0, 1, 0x03, 0, 0, 0, 0},              // unknown tag
             Bytes{0, 0, 0, 1, 0x01, 0, 0, 0},                 // U32 cut short
             Bytes{0, 0, 0, 1, 0x02, 0, 0, 0, 3, 'a', 'b'},    // string cut short
             Bytes{0, 0, 0, 1, 0x02, 0xff, 0xff, 0xff, 0xff, 'a'},
         }) {
        Raw raw(bytes);
        EXPECT_EQ(in.Assign(raw.get()), MAN_E_FORMAT) << bytes.size();
    }
    EXPECT_EQ(in.getU32(), 0u);
    EXPECT_TRUE(in.readFailed()) << "a failed Assign leaves nothing to read";
    Raw primitiveOnly(Bytes{0, 0, 0, 7});
    EXPECT_EQ(in.Assign(primitiveOnly.get()), MAN_OK);
}

TEST(Message, SizesBeyondTheMaximumAreRefusedAndTheMessageUnchanged)
{
    CManMessage m;
    EXPECT_EQ(m.Create(1, 0, -1), MAN_E_SIZE);
    EXPECT_EQ(m.Create(1, 0, static_cast<int>(MAN_MAX_MSG) + 1), MAN_E_SIZE);
    ASSERT_EQ(m.Create(1, 0, static_cast<int>(MAN_MAX_MSG)), MAN_OK);
    const std::size_t room = MAN_MAX_MSG - 4 - 5;
    EXPECT_EQ(m.addString(std::string(room + 1, 'x')), MAN_E_SIZE);
    EXPECT_EQ(m.length(), 4u);
    ASSERT_EQ(m.addString(std::string(room, 'x')), MAN_OK);
    EXPECT_EQ(m.addU32(1), MAN_E_SIZE);
    EXPECT_EQ(m.addString(""), MAN_E_SIZE);
    EXPECT_EQ(m.length(), MAN_MAX_MSG);

    Raw raw(bytesOf(m));
    CManMessage in;
    ASSERT_EQ(in.Assign(raw.get()), MAN_OK);
    EXPECT_EQ(in.getString().size(), room);
}

TEST(Message, AppendingNeedsACreatedMessage)
{
    CManMessage m;
    EXPECT_EQ(m.addU32(1), MAN_E_STATE);
    ASSERT_EQ(m.Create(1, 0, 0), MAN_OK);
    ASSERT_EQ(m.addString("old"), MAN_OK);
    ASSERT_EQ(m.Create(0x00840002, 0, 0), MAN_OK);   // restarts
    EXPECT_EQ(bytesOf(m), (Bytes{0x00, 0x84, 0x00, 0x02}));
    m.Delete();
    EXPECT_EQ(m.length(), 0u);
    EXPECT_EQ(m.addString("a"), MAN_E_STATE);
}

}  // namespace
