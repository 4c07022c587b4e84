/*
 * Stand-in extras: ours, not part of the firmware.
 *
 * The firmware's headers (firmware-api/include/platform/) declare only what
 * the firmware provides. What our platform adds for the host, the daemon,
 * the tests and its own code is here: result codes, limits, wire tags, event
 * and primitive names, callback typedefs, the sends and adders with their
 * result codes, a message's bytes, and log calls that take constant names.
 * The module cannot see this header: its only include path of ours is
 * firmware-api/include.
 */
#ifndef PLATFORM_STANDIN_H
#define PLATFORM_STANDIN_H

#include <cstddef>
#include <string>

#include "platform/attrs.h"
#include "platform/manmsg.h"

/* Result codes of our platform's calls (0 is success). */
enum {
    MAN_OK = 0,
    MAN_E_STATE = 1,     /* call not allowed in the message's state */
    MAN_E_SIZE = 2,      /* size out of range */
    MAN_E_FORMAT = 3,    /* raw message malformed or truncated */
    MAN_E_NOTASK = 4,    /* no such task or address */
    MAN_E_IO = 5,        /* the operating system refused */
    MAN_E_NOMEM = 6,
    MAN_E_FULL = 7,      /* the receiver's queue is full and the sender does not wait */
};

/* Largest message (primitive and fields) the platform carries; Create
 * refuses a larger size with MAN_E_SIZE, addU32 and addString a field that
 * would not fit. */
constexpr std::size_t MAN_MAX_MSG = 65536;

/* Field tags on the wire. */
constexpr unsigned char MAN_TAG_U32 = 0x01;
constexpr unsigned char MAN_TAG_STRING = 0x02;

/* Slots of TaskIdTbl. */
constexpr int MAN_MAX_TASKS = 128;

/* Event kinds of a task callback, and the start event's primitive. */
enum { MAN_EVENT_MESSAGE = 0, MAN_EVENT_CONTROL = 1, MAN_EVENT_TASK = 2 };
enum { MAN_PRIM_START = 1 };

typedef void (*MAN_TaskCallback)(int event, unsigned int primitive, void* raw);
typedef int (*DTM_Interpreter)(const char* line);

/* Log calls for our programs, which name files and functions by constant
 * strings; the same records as the firmware's char* forms. */
PLT_API void LOG_ExpInfo(const char* file, const char* function, int line, const char* format, ...)
    PLT_PRINTF(4, 5);
PLT_API void LOG_ExpError(const char* file, const char* function, int line, const char* format, ...)
    PLT_PRINTF(4, 5);

/* The platform's own view of a message: the friend that CManMessage names. */
class PLT_API Platform {
public:
    /* The message bytes (primitive first) of an assigned or created message. */
    static const unsigned char* data(const CManMessage& msg) { return msg.data_; }
    static std::size_t length(const CManMessage& msg) { return msg.len_; }
    /* A read failed since Assign (past the end, or a field of another type). */
    static bool readFailed(const CManMessage& msg) { return msg.readError_; }

    /* The adders with their result: 0, MAN_E_STATE before Create,
     * MAN_E_SIZE when the field would not fit, MAN_E_NOMEM. */
    static int addU32(CManMessage& msg, unsigned int value);
    static int addString(CManMessage& msg, const std::string& value);

private:
    static bool fits(const CManMessage& msg, std::size_t n);
};

/* The sends with their result: 0 or a MAN_E_ code. The firmware's CManIO
 * calls are these without the result. */
PLT_API int PLT_SendIpc(CManMessage& msg, const char* source, const char* destination);
PLT_API int PLT_SendLocal(CManMessage& msg, int taskNo);
PLT_API int PLT_TimerLocal(CManMessage& msg, int taskNo, unsigned int time);

#endif
