/*
 * The message codec and the firmware's CManIO calls, the same in every
 * platform build.
 *
 *   message := primitive:u32 field*
 *   field   := 0x01 value:u32 | 0x02 length:u32 byte[length]
 *
 * All numbers most significant byte first; a message is at most MAN_MAX_MSG
 * bytes. Received bytes are untrusted: Assign checks the whole layout once,
 * and the readers check bounds again so a created message is read safely too.
 */
#include <cstdio>
#include <cstring>
#include <new>

#include "internal.h"
#include "platform/log.h"
#include "platform/manmsg.h"
#include "platform/runtime.h"

namespace {

constexpr std::size_t PRIM_LEN = 4;
constexpr std::size_t U32_FIELD = 5;      /* tag + value */
constexpr std::size_t STRING_HEAD = 5;    /* tag + length */
constexpr std::size_t DUMP_BYTES = 64;

uint32_t readBe32(const unsigned char* p)
{
    return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
           (static_cast<uint32_t>(p[2]) << 8) | static_cast<uint32_t>(p[3]);
}

void appendBe32(std::vector<unsigned char>& out, uint32_t v)
{
    out.push_back(static_cast<unsigned char>(v >> 24));
    out.push_back(static_cast<unsigned char>(v >> 16));
    out.push_back(static_cast<unsigned char>(v >> 8));
    out.push_back(static_cast<unsigned char>(v));
}

/* Size of the field at `pos`, or 0 when it is not a complete known field. */
std::size_t fieldSize(const unsigned char* data, std::size_t len, std::size_t pos)
{
    std::size_t left = len - pos;
    if (left < U32_FIELD)
        return 0;
    if (data[pos] == MAN_TAG_U32)
        return U32_FIELD;
    if (data[pos] == MAN_TAG_STRING) {
        uint32_t n = readBe32(data + pos + 1);
        if (n > left - STRING_HEAD)
            return 0;
        return STRING_HEAD + n;
    }
    return 0;
}

bool wellFormed(const unsigned char* data, std::size_t len)
{
    std::size_t pos = PRIM_LEN;
    while (pos < len) {
        std::size_t n = fieldSize(data, len, pos);
        if (n == 0)
            return false;
        pos += n;
    }
    return true;
}

}  // namespace

CManMessage::CManMessage() = default;
CManMessage::~CManMessage() = default;

int CManMessage::Create(unsigned int primitive, unsigned int flags, int size)
{
    plt::noteCreate(primitive, flags, size);
    if (int fault = plt::faultFor(plt::Fault::Create))
        return fault;
    if (size < 0 || static_cast<std::size_t>(size) > MAN_MAX_MSG)
        return MAN_E_SIZE;
    try {
        out_.clear();
        out_.reserve(PRIM_LEN + static_cast<std::size_t>(size) + STRING_HEAD);
    } catch (const std::bad_alloc&) {
        return MAN_E_NOMEM;
    }
    appendBe32(out_, primitive);
    data_ = out_.data();
    len_ = out_.size();
    pos_ = PRIM_LEN;
    created_ = true;
    readError_ = false;
    return MAN_OK;
}

bool Platform::fits(const CManMessage& msg, std::size_t n)
{
    return msg.created_ && n <= MAN_MAX_MSG - msg.len_;
}

int Platform::addU32(CManMessage& msg, unsigned int value)
{
    if (!msg.created_)
        return MAN_E_STATE;
    if (!fits(msg, U32_FIELD))
        return MAN_E_SIZE;
    try {
        msg.out_.push_back(MAN_TAG_U32);
        appendBe32(msg.out_, value);
    } catch (const std::bad_alloc&) {
        msg.out_.resize(msg.len_);
        return MAN_E_NOMEM;
    }
    msg.data_ = msg.out_.data();
    msg.len_ = msg.out_.size();
    return MAN_OK;
}

int Platform::addString(CManMessage& msg, const std::string& value)
{
    if (!msg.created_)
        return MAN_E_STATE;
    if (value.size() > MAN_MAX_MSG || !fits(msg, STRING_HEAD + value.size()))
        return MAN_E_SIZE;
    try {
        msg.out_.push_back(MAN_TAG_STRING);
        appendBe32(msg.out_, static_cast<uint32_t>(value.size()));
        msg.out_.insert(msg.out_.end(), value.begin(), value.end());
    } catch (const std::bad_alloc&) {
        msg.out_.resize(msg.len_);
        return MAN_E_NOMEM;
    }
    msg.data_ = msg.out_.data();
    msg.len_ = msg.out_.size();
    return MAN_OK;
}

/* The firmware's adders report nothing; a field that does not fit is left
 * out, and the receiver reads "" or 0 in its place. */
void CManMessage::addU32(unsigned int value)
{
    Platform::addU32(*this, value);
}

void CManMessage::addString(const std::string& value)
{
    Platform::addString(*this, value);
}

int CManMessage::Assign(void* raw)
{
    if (int fault = plt::faultFor(plt::Fault::Assign))
        return fault;
    std::vector<unsigned char>().swap(out_);
    created_ = false;
    data_ = nullptr;
    len_ = 0;
    pos_ = PRIM_LEN;
    readError_ = false;

    auto* msg = plt::rawOf(raw);
    if (msg == nullptr || msg->magic != plt::RAW_MAGIC)
        return MAN_E_FORMAT;
    if (msg->length < PRIM_LEN || msg->length > MAN_MAX_MSG)
        return MAN_E_FORMAT;
    if (!wellFormed(msg->bytes(), msg->length))
        return MAN_E_FORMAT;
    data_ = msg->bytes();
    len_ = msg->length;
    return MAN_OK;
}

unsigned int CManMessage::getU32()
{
    if (data_ == nullptr || pos_ >= len_ || fieldSize(data_, len_, pos_) == 0 ||
        data_[pos_] != MAN_TAG_U32) {
        readError_ = true;
        return 0;
    }
    uint32_t v = readBe32(data_ + pos_ + 1);
    pos_ += U32_FIELD;
    return v;
}

std::string CManMessage::getString()
{
    std::size_t n = 0;
    if (data_ == nullptr || pos_ >= len_ || (n = fieldSize(data_, len_, pos_)) == 0 ||
        data_[pos_] != MAN_TAG_STRING) {
        readError_ = true;
        return std::string();
    }
    std::string s(reinterpret_cast<const char*>(data_ + pos_ + STRING_HEAD), n - STRING_HEAD);
    pos_ += n;
    return s;
}

void CManMessage::Delete()
{
    if (!created_)
        return;
    std::vector<unsigned char>().swap(out_);
    created_ = false;
    data_ = nullptr;
    len_ = 0;
    pos_ = PRIM_LEN;
}

void CManMessage::Dump()
{
    if (data_ == nullptr || len_ < PRIM_LEN) {
        UI_ExpWritef("CManMessage empty\n");
        return;
    }
    UI_ExpWritef("CManMessage primitive 0x%08lx length %lu\n",
                 static_cast<unsigned long>(readBe32(data_)), static_cast<unsigned long>(len_));
    std::size_t pos = PRIM_LEN;
    while (pos < len_) {
        std::size_t n = fieldSize(data_, len_, pos);
        if (n == 0) {
            UI_ExpWritef("  malformed field at offset %lu\n", static_cast<unsigned long>(pos));
            return;
        }
        if (data_[pos] == MAN_TAG_U32) {
            uint32_t v = readBe32(data_ + pos + 1);
            UI_ExpWritef("  u32 0x%08lx %lu\n", static_cast<unsigned long>(v),
                         static_cast<unsigned long>(v));
        } else {
            std::size_t slen = n - STRING_HEAD;
            std::size_t shown = slen < DUMP_BYTES ? slen : DUMP_BYTES;
            std::string text;
            for (std::size_t i = 0; i < shown; i++) {
                unsigned char c = data_[pos + STRING_HEAD + i];
                if (c >= 0x20 && c < 0x7f && c != '\\') {
                    text += static_cast<char>(c);
                } else {
                    char esc[5];
                    std::snprintf(esc, sizeof esc, "\\x%02x", c);
                    text += esc;
                }
            }
            UI_ExpWritef("  string length %lu \"%s\"%s\n", static_cast<unsigned long>(slen),
                         text.c_str(), shown < slen ? "..." : "");
        }
        pos += n;
    }
}

namespace plt {

RawMsg* rawAlloc(const unsigned char* data, std::size_t length)
{
    if (length > MAN_MAX_MSG || (data == nullptr && length > 0))
        return nullptr;
    auto* block = new (std::nothrow) unsigned char[sizeof(RawMsg) + length];
    if (block == nullptr)
        return nullptr;
    auto* raw = new (block) RawMsg;
    raw->magic = RAW_MAGIC;
    raw->length = static_cast<uint32_t>(length);
    raw->source[0] = '\0';
    if (length > 0)
        std::memcpy(raw->bytes(), data, length);
    return raw;
}

void rawFree(RawMsg* raw)
{
    if (raw == nullptr)
        return;
    raw->magic = 0;
    delete[] reinterpret_cast<unsigned char*>(raw);
}

}  // namespace plt

const char* PLT_MessageSource(const void* raw)
{
    const auto* r = plt::rawOf(raw);
    if (r == nullptr || r->magic != plt::RAW_MAGIC)
        return "";
    return r->source;
}

/* The firmware's sends report nothing; each platform build defines the
 * PLT_ forms. */
void CManIO::SendIpc(CManMessage& msg, const char* source, const char* destination)
{
    PLT_SendIpc(msg, source, destination);
}

void CManIO::SendLocal(CManMessage& msg, int taskNo)
{
    PLT_SendLocal(msg, taskNo);
}

void CManIO::TimerLocal(CManMessage& msg, int taskNo, unsigned int time)
{
    PLT_TimerLocal(msg, taskNo, time);
}
