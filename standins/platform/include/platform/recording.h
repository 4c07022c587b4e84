/*
 * The recording platform, for unit tests: every platform call the module
 * makes is recorded with its arguments; nothing runs by itself. A test
 * delivers events and messages to a task callback, fires armed timers by
 * hand, and can make the next Create, Assign, MAN_ExpTCreate or
 * DTM_ExpRegister fail with a chosen code. No threads of its own, no
 * sleeps; calls from several threads of a test are recorded safely, but the
 * Recorder's lists must be read only while no other thread records.
 */
#ifndef PLATFORM_RECORDING_H
#define PLATFORM_RECORDING_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/dtm.h"
#include "platform/fault.h"
#include "platform/standin.h"
#include "platform/manmsg.h"
#include "platform/mantask.h"

namespace rec {

/* One field of a recorded message. */
struct Field {
    bool isU32;
    uint32_t u32;
    std::string str;
};

/* A message as it left the module, decoded. */
struct Message {
    uint32_t primitive = 0;
    std::vector<Field> fields;
    std::vector<unsigned char> bytes;
    std::string string(std::size_t i) const;   /* field i as string, "" if none */
    uint32_t u32(std::size_t i) const;          /* field i as U32, 0 if none */
};

struct LogRecord {
    int level;                 /* 0 information, 1 error */
    std::string file;
    std::string function;
    int line;
    std::string text;
};

struct IpcSend {
    Message msg;
    bool sourceNull;
    std::string source;
    std::string destination;
};

struct LocalSend {
    Message msg;
    int task;
};

struct TimerArm {
    Message msg;
    int task;
    unsigned int time;
    bool fired;
};

struct Task {
    std::string name;
    int* slot;
    int arg;
    MAN_TaskCallback callback;
    int index;                 /* -1 when the slot is not in TaskIdTbl */
};

struct Console {
    std::string name;
    std::string title;
    DTM_Interpreter interpreter;
};

struct Recorder {
    std::vector<std::string> terminal;     /* one entry per UI_ExpWritef call */
    std::vector<LogRecord> logs;
    std::vector<Task> tasks;
    std::vector<Console> consoles;
    std::vector<IpcSend> ipc;
    std::vector<LocalSend> local;
    std::vector<TimerArm> timers;
    std::vector<std::string> calls;        /* every call above, in order, in short,
                                              and every Create as
                                              "create <primitive> <flags> <size>" */
    std::vector<void*> released;           /* MAN_ExpPFree arguments, in order */
    int badReleases = 0;                   /* of unknown or already released raws */
    int dtmReturns = 0;

    std::string terminalText() const;      /* all terminal output joined */
    std::size_t logCount(const std::string& text) const;
};

Recorder& recorder();

/* Forgets everything recorded, releases outstanding raws, clears TaskIdTbl
 * and every armed fault. */
void reset();

/* Makes a platform call fail with `code`: the call after `skip` further
 * successful ones, once, or every time from then on when `always`. */
void failNext(PltFault which, int code, int skip = 0, bool always = false);

/* A raw message as a task receives it; MAN_ExpPFree releases it. */
struct RawBuilder {
    explicit RawBuilder(uint32_t primitive);
    RawBuilder& u32(uint32_t value);
    RawBuilder& str(const std::string& value);
    void* build() const;                   /* tracked until released */
    std::vector<unsigned char> bytes;
};
void* makeRaw(const std::vector<unsigned char>& bytes);

/* Raws made by this platform and not yet released. */
std::size_t liveRaws();
/* How often the raw was handed to MAN_ExpPFree. */
int releaseCount(const void* raw);

/* Calls the callback of the task with index `task`. false if none. */
bool deliver(int task, int event, unsigned int primitive, void* raw);
/* Delivers armed timer `i` to its task as a message (once). */
bool fireTimer(std::size_t i);
/* Fires every timer armed and not yet fired, including ones armed while
 * firing; returns how many fired. */
std::size_t fireAllTimers();
/* Timers armed and not yet fired; timers armed in all. */
std::size_t pendingTimers();
std::size_t timerCount();

/* Copies of the IPC sends from number `from` on; safe while other threads
 * send. */
std::vector<IpcSend> ipcSince(std::size_t from);

}  // namespace rec

#endif
