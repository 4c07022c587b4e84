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

// A raw message block as a task receives it, built by hand so the header can
// lie about the length.
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
    void* get() { return store.data(); }
};

Bytes bytesOf(const CManMessage& m)
{
    return Bytes(m.data(), m.data() + m.length());
}

TEST(MessageLayout, FieldsAreTaggedBigEndian)
{
    CManMessage m;
    ASSERT_EQ(m.Create(0x00830002, 0, 0), MAN_OK);
    ASSERT_EQ(m.addString("{\"queryId\":0}"), MAN_OK);
    ASSERT_EQ(m.addU32(0x01020304), MAN_OK);
    std::string text = "{\"queryId\":0}";
    Bytes expected = {0x00, 0x83, 0x00, 0x02, 0x02, 0x00, 0x00, 0x00, 0x0d};
    expected.insert(expected.end(), text.begin(), text.end());
    expected.insert(expected.end(), {0x01, 0x01, 0x02, 0x03, 0x04});
    EXPECT_EQ(bytesOf(m), expected);
}

TEST(MessageRoundTrip, FieldsComeBackInOrder)
{
    const std::string binary("a\0b\xff\x01", 5);
    CManMessage out;
    ASSERT_EQ(out.Create(0xdeadbeef, 0, 100), MAN_OK);
    ASSERT_EQ(out.addU32(0), MAN_OK);
    ASSERT_EQ(out.addString(binary), MAN_OK);
    ASSERT_EQ(out.addString(""), MAN_OK);
    ASSERT_EQ(out.addU32(0xffffffff), MAN_OK);

    Raw raw(bytesOf(out));
    CManMessage in;
    ASSERT_EQ(in.Assign(raw.get()), MAN_OK);
    EXPECT_EQ(in.data()[0], 0xde);
    EXPECT_EQ(in.getU32(), 0u);
    EXPECT_EQ(in.getString(), binary);
    EXPECT_EQ(in.getString(), "");
    EXPECT_EQ(in.getU32(), 0xffffffffu);
    EXPECT_FALSE(in.readFailed());
}

TEST(MessageRead, WrongTypeFailsWithoutMovingOn)
{
    CManMessage out;
    ASSERT_EQ(out.Create(1, 0, 0), MAN_OK);
    ASSERT_EQ(out.addU32(42), MAN_OK);
    Raw raw(bytesOf(out));
    CManMessage in;
    ASSERT_EQ(in.Assign(raw.get()), MAN_OK);
    EXPECT_EQ(in.getString(), "");
    EXPECT_TRUE(in.readFailed());
    EXPECT_EQ(in.getU32(), 42u);   // still at the U32
    EXPECT_TRUE(in.readFailed());  // sticky
}

TEST(MessageRead, ReadingPastTheEndFails)
{
    CManMessage out;
    ASSERT_EQ(out.Create(1, 0, 0), MAN_OK);
    ASSERT_EQ(out.addString("x"), MAN_OK);
    Raw raw(bytesOf(out));
    CManMessage in;
    ASSERT_EQ(in.Assign(raw.get()), MAN_OK);
    EXPECT_EQ(in.getString(), "x");
    EXPECT_FALSE(in.readFailed());
    EXPECT_EQ(in.getString(), "");
    EXPECT_TRUE(in.readFailed());
}

TEST(MessageAssign, RejectsMalformedRaws)
{
    CManMessage in;
    EXPECT_EQ(in.Assign(nullptr), MAN_E_FORMAT);
    Raw badMagic(Bytes{0, 0, 0, 1}, 4, 0x12345678);
    EXPECT_EQ(in.Assign(badMagic.get()), MAN_E_FORMAT);
    Raw tooShort(Bytes{0, 0, 1});
    EXPECT_EQ(in.Assign(tooShort.get()), MAN_E_FORMAT);
    Raw tooLong(Bytes{0, 0, 0, 1}, static_cast<uint32_t>(MAN_MAX_MSG + 1));
    EXPECT_EQ(in.Assign(tooLong.get()), MAN_E_FORMAT);
    Raw unknownTag(Bytes{0, 0, 0, 1, 0x03, 0, 0, 0, 0});
    EXPECT_EQ(in.Assign(unknownTag.get()), MAN_E_FORMAT);
    Raw cutU32(Bytes{0, 0, 0, 1, 0x01, 0, 0, 0});
    EXPECT_EQ(in.Assign(cutU32.get()), MAN_E_FORMAT);
    Raw cutString(Bytes{0, 0, 0, 1, 0x02, 0, 0, 0, 3, 'a', 'b'});
    EXPECT_EQ(in.Assign(cutString.get()), MAN_E_FORMAT);
    Raw hugeString(Bytes{0, 0, 0, 1, 0x02, 0xff, 0xff, 0xff, 0xff, 'a'});
    EXPECT_EQ(in.Assign(hugeString.get()), MAN_E_FORMAT);
    // A failed Assign leaves nothing to read.
    EXPECT_EQ(in.getU32(), 0u);
    EXPECT_TRUE(in.readFailed());
    Raw primitiveOnly(Bytes{0, 0, 0, 7});
    EXPECT_EQ(in.Assign(primitiveOnly.get()), MAN_OK);
}

TEST(MessageLimits, CreateSizeMustLieInRange)
{
    CManMessage m;
    EXPECT_EQ(m.Create(1, 0, -1), MAN_E_SIZE);
    EXPECT_EQ(m.Create(1, 0, static_cast<int>(MAN_MAX_MSG) + 1), MAN_E_SIZE);
    EXPECT_EQ(m.Create(1, 0, static_cast<int>(MAN_MAX_MSG)), MAN_OK);
}

TEST(MessageLimits, StringBeyondMaximumIsRefusedAndMessageUnchanged)
{
    CManMessage m;
    ASSERT_EQ(m.Create(1, 0, 0), MAN_OK);
    const std::size_t room = MAN_MAX_MSG - 4 - 5;
    EXPECT_EQ(m.addString(std::string(room + 1, 'x')), MAN_E_SIZE);
    EXPECT_EQ(m.length(), 4u);
    ASSERT_EQ(m.addString(std::string(room, 'x')), MAN_OK);
    EXPECT_EQ(m.length(), MAN_MAX_MSG);
    EXPECT_EQ(m.addU32(1), MAN_E_SIZE);
    EXPECT_EQ(m.addString(""), MAN_E_SIZE);
    EXPECT_EQ(m.length(), MAN_MAX_MSG);

    Raw raw(bytesOf(m));
    CManMessage in;
    ASSERT_EQ(in.Assign(raw.get()), MAN_OK);
    EXPECT_EQ(in.getString().size(), room);
}

TEST(MessageState, AppendingNeedsACreatedMessage)
{
    CManMessage m;
    EXPECT_EQ(m.addU32(1), MAN_E_STATE);
    ASSERT_EQ(m.Create(1, 0, 0), MAN_OK);
    ASSERT_EQ(m.addString("old"), MAN_OK);
    ASSERT_EQ(m.Create(0x00840002, 0, 0), MAN_OK);  // restarts
    EXPECT_EQ(bytesOf(m), (Bytes{0x00, 0x84, 0x00, 0x02}));
    m.Delete();
    EXPECT_EQ(m.length(), 0u);
    EXPECT_EQ(m.addString("a"), MAN_E_STATE);
}

}  // namespace
