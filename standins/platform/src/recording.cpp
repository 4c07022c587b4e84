/*
 * The recording platform: the platform's calls keep what they were given
 * in rec::recorder() so tests can read it back; time passes only when a test
 * fires a timer.
 */
#include <cstdarg>
#include <cstdio>
#include <map>
#include <mutex>
#include <vector>

#include "internal.h"
#include "platform/log.h"
#include "platform/recording.h"

int TaskIdTbl[MAN_MAX_TASKS];
CManIO cManIO;

namespace {

struct FaultPlan {
    int code = 0;
    int skip = 0;
    bool always = false;
    bool armed = false;
};

/* Module code may call the platform from several threads at once; the
 * recording is guarded, a callback is never called under the lock. */
std::recursive_mutex recLock;
typedef std::lock_guard<std::recursive_mutex> Guard;

std::map<PltFault, FaultPlan> faults;
std::map<const void*, int> raws;   /* raw -> times released; live while 0 */
std::size_t live = 0;

rec::Message decode(const CManMessage& msg)
{
    rec::Message m;
    const unsigned char* p = Platform::data(msg);
    std::size_t n = Platform::length(msg);
    if (p == nullptr)
        return m;
    m.bytes.assign(p, p + n);
    auto be32 = [](const unsigned char* b) {
        return (uint32_t(b[0]) << 24) | (uint32_t(b[1]) << 16) | (uint32_t(b[2]) << 8) | uint32_t(b[3]);
    };
    if (n < 4)
        return m;
    m.primitive = be32(p);
    std::size_t pos = 4;
    while (pos + 5 <= n) {
        unsigned char tag = p[pos];
        uint32_t v = be32(p + pos + 1);
        pos += 5;
        if (tag == MAN_TAG_U32) {
            m.fields.push_back({true, v, std::string()});
        } else if (tag == MAN_TAG_STRING && v <= n - pos) {
            m.fields.push_back({false, 0, std::string(reinterpret_cast<const char*>(p + pos), v)});
            pos += v;
        } else {
            break;
        }
    }
    return m;
}

const rec::Task* taskByIndex(int index)
{
    for (const rec::Task& t : rec::recorder().tasks)
        if (t.index == index)
            return &t;
    return nullptr;
}

}  // namespace

namespace plt {

int faultFor(Fault which)
{
    Guard guard(recLock);
    auto it = faults.find(which);
    if (it == faults.end() || !it->second.armed)
        return 0;
    FaultPlan& plan = it->second;
    if (plan.skip > 0) {
        plan.skip--;
        return 0;
    }
    if (!plan.always)
        plan.armed = false;
    return plan.code;
}

}  // namespace plt

namespace rec {

std::string Message::string(std::size_t i) const
{
    return i < fields.size() && !fields[i].isU32 ? fields[i].str : std::string();
}

uint32_t Message::u32(std::size_t i) const
{
    return i < fields.size() && fields[i].isU32 ? fields[i].u32 : 0;
}

std::string Recorder::terminalText() const
{
    std::string all;
    for (const std::string& s : terminal)
        all += s;
    return all;
}

std::size_t Recorder::logCount(const std::string& text) const
{
    std::size_t n = 0;
    for (const LogRecord& r : logs)
        n += r.text == text;
    return n;
}

Recorder& recorder()
{
    static Recorder r;
    return r;
}

void reset()
{
    Guard guard(recLock);
    for (auto& r : raws)
        if (r.second == 0)
            plt::rawFree(plt::rawOf(r.first));
    raws.clear();
    live = 0;
    faults.clear();
    recorder() = Recorder();
    for (int& id : TaskIdTbl)
        id = 0;
}

void failNext(PltFault which, int code, int skip, bool always)
{
    Guard guard(recLock);
    faults[which] = FaultPlan{code, skip, always, true};
}

RawBuilder::RawBuilder(uint32_t primitive)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes.push_back(static_cast<unsigned char>(primitive >> shift));
}

RawBuilder& RawBuilder::u32(uint32_t value)
{
    bytes.push_back(MAN_TAG_U32);
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes.push_back(static_cast<unsigned char>(value >> shift));
    return *this;
}

RawBuilder& RawBuilder::str(const std::string& value)
{
    bytes.push_back(MAN_TAG_STRING);
    uint32_t n = static_cast<uint32_t>(value.size());
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes.push_back(static_cast<unsigned char>(n >> shift));
    bytes.insert(bytes.end(), value.begin(), value.end());
    return *this;
}

void* RawBuilder::build() const
{
    return makeRaw(bytes);
}

void* makeRaw(const std::vector<unsigned char>& bytes)
{
    Guard guard(recLock);
    void* raw = plt::rawHandle(plt::rawAlloc(bytes.data(), bytes.size()));
    if (raw != nullptr) {
        raws[raw] = 0;
        live++;
    }
    return raw;
}

std::size_t liveRaws()
{
    Guard guard(recLock);
    return live;
}

int releaseCount(const void* raw)
{
    Guard guard(recLock);
    auto it = raws.find(raw);
    return it == raws.end() ? 0 : it->second;
}

bool deliver(int task, int event, unsigned int primitive, void* raw)
{
    MAN_TaskCallback cb;
    {
        Guard guard(recLock);
        const Task* t = taskByIndex(task);
        if (t == nullptr)
            return false;
        cb = t->callback;
    }
    cb(event, primitive, raw);
    return true;
}

bool fireTimer(std::size_t i)
{
    int task;
    uint32_t primitive;
    void* raw;
    {
        Guard guard(recLock);
        Recorder& r = recorder();
        if (i >= r.timers.size() || r.timers[i].fired)
            return false;
        r.timers[i].fired = true;
        task = r.timers[i].task;
        primitive = r.timers[i].msg.primitive;
        raw = makeRaw(r.timers[i].msg.bytes);
        r.calls.push_back("fire " + std::to_string(i));
    }
    return deliver(task, MAN_EVENT_MESSAGE, primitive, raw);
}

std::size_t fireAllTimers()
{
    std::size_t fired = 0;
    for (std::size_t i = 0; i < timerCount(); i++)
        if (fireTimer(i))
            fired++;
    return fired;
}

std::size_t timerCount()
{
    Guard guard(recLock);
    return recorder().timers.size();
}

std::vector<IpcSend> ipcSince(std::size_t from)
{
    Guard guard(recLock);
    const std::vector<IpcSend>& all = recorder().ipc;
    if (from >= all.size())
        return std::vector<IpcSend>();
    return std::vector<IpcSend>(all.begin() + static_cast<std::ptrdiff_t>(from), all.end());
}

std::size_t pendingTimers()
{
    Guard guard(recLock);
    std::size_t n = 0;
    for (const TimerArm& t : recorder().timers)
        n += !t.fired;
    return n;
}

}  // namespace rec

/* Platform calls. */

int PLT_SendIpc(CManMessage& msg, const char* source, const char* destination)
{
    Guard guard(recLock);
    rec::IpcSend s{decode(msg), source == nullptr, source ? source : "", destination ? destination : ""};
    rec::recorder().calls.push_back("ipc " + s.destination);
    rec::recorder().ipc.push_back(std::move(s));
    return 0;
}

int PLT_SendLocal(CManMessage& msg, int taskNo)
{
    Guard guard(recLock);
    rec::recorder().calls.push_back("local " + std::to_string(taskNo));
    rec::recorder().local.push_back({decode(msg), taskNo});
    return 0;
}

int PLT_TimerLocal(CManMessage& msg, int taskNo, unsigned int time)
{
    Guard guard(recLock);
    rec::recorder().calls.push_back("timer " + std::to_string(taskNo) + " " + std::to_string(time));
    rec::recorder().timers.push_back({decode(msg), taskNo, time, false});
    return 0;
}

int MAN_ExpTCreate(const char* name, int* idSlot, int arg, MAN_TaskCallback callback)
{
    Guard guard(recLock);
    int code = plt::faultFor(plt::Fault::TaskCreate);
    rec::recorder().calls.push_back(std::string("tcreate ") + (name ? name : ""));
    if (code != 0)
        return code;
    int index = -1;
    if (idSlot >= TaskIdTbl && idSlot < TaskIdTbl + MAN_MAX_TASKS)
        index = static_cast<int>(idSlot - TaskIdTbl);
    if (idSlot != nullptr)
        *idSlot = 0x1000 + (index < 0 ? MAN_MAX_TASKS + static_cast<int>(rec::recorder().tasks.size()) : index);
    rec::recorder().tasks.push_back({name ? name : "", idSlot, arg, callback, index});
    return 0;
}

void MAN_ExpPFree(void* raw)
{
    Guard guard(recLock);
    rec::recorder().released.push_back(raw);
    auto it = raws.find(raw);
    if (it == raws.end() || it->second != 0) {
        rec::recorder().badReleases++;
        if (it != raws.end())
            it->second++;
        return;
    }
    it->second = 1;
    live--;
    plt::rawFree(plt::rawOf(raw));
}

void plt::writeLog(int level, const char* file, const char* function, int line, const char* format, va_list args)
{
    std::string text = plt::formatText(format, args);
    Guard guard(recLock);
    rec::recorder().logs.push_back({level, file ? file : "", function ? function : "", line, std::move(text)});
    rec::recorder().calls.push_back((level == 0 ? "log " : "error ") + rec::recorder().logs.back().text);
}

void plt::writeTerminal(const char* format, va_list args)
{
    std::string text = plt::formatText(format, args);
    Guard guard(recLock);
    rec::recorder().terminal.push_back(text);
    rec::recorder().calls.push_back("ui " + text);
}

int DTM_ExpRegister(const char* name, const char* title, DTM_Interpreter interpreter)
{
    Guard guard(recLock);
    int code = plt::faultFor(plt::Fault::Register);
    rec::recorder().calls.push_back(std::string("register ") + (name ? name : ""));
    if (code != 0)
        return code;
    rec::recorder().consoles.push_back({name ? name : "", title ? title : "", interpreter});
    return 0;
}

void plt::noteCreate(unsigned int primitive, unsigned int flags, int size)
{
    Guard guard(recLock);
    char text[64];
    std::snprintf(text, sizeof text, "create 0x%08x %u %d", primitive, flags, size);
    rec::recorder().calls.push_back(text);
}

void DTM_ExpReturn()
{
    Guard guard(recLock);
    rec::recorder().dtmReturns++;
    rec::recorder().calls.push_back("return");
}
