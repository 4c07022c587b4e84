/*
 * The benchmark platform: every call the module makes is counted and
 * dropped. Messages are built by the shared codec as everywhere else; the
 * raw messages tasks receive come from the same allocator as in the other
 * platform builds.
 */
#include "benchplatform.h"

#include "internal.h"
#include "platform/dtm.h"
#include "platform/log.h"
#include "platform/manmsg.h"
#include "platform/mantask.h"

int TaskIdTbl[MAN_MAX_TASKS];
CManIO cManIO;

namespace {

MAN_TaskCallback callbacks[MAN_MAX_TASKS];
benchplt::Counts tally;
bool keepLast = false;
std::string last;

}  // namespace

namespace plt {

int faultFor(Fault)
{
    return 0;
}

void noteCreate(unsigned int, unsigned int, int)
{
}

}  // namespace plt

namespace benchplt {

Counts& counts()
{
    return tally;
}

void reset()
{
    tally = Counts();
    for (int i = 0; i < MAN_MAX_TASKS; i++) {
        TaskIdTbl[i] = 0;
        callbacks[i] = nullptr;
    }
    last.clear();
}

void keepLastIpc(bool keep)
{
    keepLast = keep;
}

const std::string& lastIpc()
{
    return last;
}

void* rawString(uint32_t primitive, const std::string& text)
{
    std::string bytes;
    bytes.reserve(9 + text.size());
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>((primitive >> shift) & 0xFF);
    bytes += static_cast<char>(MAN_TAG_STRING);
    const uint32_t n = static_cast<uint32_t>(text.size());
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>((n >> shift) & 0xFF);
    bytes += text;
    return plt::rawHandle(plt::rawAlloc(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()));
}

bool deliver(int task, int event, unsigned int primitive, void* raw)
{
    if (task < 0 || task >= MAN_MAX_TASKS || callbacks[task] == nullptr)
        return false;
    callbacks[task](event, primitive, raw);
    return true;
}

}  // namespace benchplt

int PLT_SendIpc(CManMessage& msg, const char*, const char*)
{
    tally.ipcSends++;
    tally.ipcBytes += Platform::length(msg);
    if (keepLast)
        last.assign(reinterpret_cast<const char*>(Platform::data(msg)), Platform::length(msg));
    return MAN_OK;
}

int PLT_SendLocal(CManMessage&, int)
{
    tally.localSends++;
    return MAN_OK;
}

int PLT_TimerLocal(CManMessage&, int, unsigned int)
{
    tally.timers++;
    return MAN_OK;
}

int MAN_ExpTCreate(const char*, int* idSlot, int, MAN_TaskCallback callback)
{
    if (idSlot == nullptr || callback == nullptr)
        return MAN_E_FORMAT;
    if (idSlot < TaskIdTbl || idSlot >= TaskIdTbl + MAN_MAX_TASKS)
        return MAN_E_NOTASK;
    const int index = static_cast<int>(idSlot - TaskIdTbl);
    *idSlot = 0x1000 + index;
    callbacks[index] = callback;
    return MAN_OK;
}

void MAN_ExpPFree(void* raw)
{
    plt::rawFree(plt::rawOf(raw));
}

/* The text is never formatted: a benchmark pays for the module's calls,
 * not for records nobody reads. */
void plt::writeLog(int, const char*, const char*, int, const char*, va_list)
{
    tally.logs++;
}

void plt::writeTerminal(const char*, va_list)
{
    tally.terminalWrites++;
}

int DTM_ExpRegister(const char*, const char*, DTM_Interpreter)
{
    return MAN_OK;
}

void DTM_ExpReturn()
{
}
