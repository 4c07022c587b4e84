// The message writer: wire layout and its bounds. What the reader makes of
// any bytes is checked by the message fuzz target's corpus against a
// decoder of its own.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "../platform/src/internal.h"
#include "platform/manmsg.h"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes bytesOf(const CManMessage& m)
{
    return Bytes(m.data(), m.data() + m.length());
}

// What a task receives: `m` copied into a raw message block.
std::string readBack(const CManMessage& m)
{
    std::vector<uint32_t> store((sizeof(plt::RawMsg) + m.length() + 3) / 4);
    auto* raw = reinterpret_cast<plt::RawMsg*>(store.data());
    raw->magic = plt::RAW_MAGIC;
    raw->length = static_cast<uint32_t>(m.length());
    std::memcpy(raw->bytes(), m.data(), m.length());
    CManMessage in;
    EXPECT_EQ(in.Assign(plt::rawHandle(raw)), MAN_OK);
    std::string fields = in.getString();
    fields += "|" + std::to_string(in.getU32());
    fields += "|" + in.getString();
    fields += "|" + std::to_string(in.getU32());
    return in.readFailed() ? "(read failed)" : fields;
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
    EXPECT_EQ(readBack(out), binary + "|16909060||4294967295");
}

TEST(Message, SizesBeyondTheMaximumAndAppendsWithoutCreateAreRefusedAndChangeNothing)
{
    CManMessage m;
    EXPECT_EQ(m.addU32(1), MAN_E_STATE);
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
    ASSERT_EQ(m.Create(0x00840002, 0, 0), MAN_OK);   // starts over
    EXPECT_EQ(bytesOf(m), (Bytes{0x00, 0x84, 0x00, 0x02}));
    m.Delete();
    EXPECT_EQ(m.length(), 0u);
    EXPECT_EQ(m.addString("a"), MAN_E_STATE);
}

}  // namespace
