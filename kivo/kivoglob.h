/*
 * Module-wide state and constants, shared by the module's sources (hidden
 * from the library's users).
 *
 * pManager and pBackend are written once by the kivo task and read by every
 * thread, the trace levels and the interface switch are written by the
 * console and read everywhere: they are atomics so those reads are defined.
 * uiQueryId is guarded by the backend's table lock (pbbackend.h).
 */
#ifndef KIVO_KIVOGLOB_H
#define KIVO_KIVOGLOB_H

#include <atomic>

#include "phonebook/manager.h"

class PbBackend;

extern std::atomic<ZEMBRA::Phonebook::Manager*> pManager;
extern std::atomic<PbBackend*> pBackend;
extern unsigned int uiQueryId;
extern std::atomic<int> iIfcEnable;
extern std::atomic<int> KIVODebugLevel[2];
extern const char* const KIVODebugLevelName[2];

enum { KIVO_LEVEL_EXP = 0, KIVO_LEVEL_INFO = 1 };

inline bool KIVO_TraceExp() { return KIVODebugLevel[KIVO_LEVEL_EXP].load(std::memory_order_relaxed) != 0; }
inline bool KIVO_TraceInfo() { return KIVODebugLevel[KIVO_LEVEL_INFO].load(std::memory_order_relaxed) != 0; }

/* Constants of the module. Where the platform or the phonebook library
 * gives a value but no name the module may rely on, the module names it here
 * and converts at the call. */
constexpr int KIVO_TASK_INDEX = 67;
constexpr int KIVO_TASK_ARG = 8;
constexpr unsigned int KIVO_QUERY_TIME = 5000;
constexpr int KIVO_CACHE_TASK = 64;
constexpr unsigned int KIVO_PRIM_TIMER = 0x00000002;
constexpr unsigned int KIVO_PRIM_RESULT = 0x00830002;
constexpr unsigned int KIVO_PRIM_CHANGE = 0x00830001;
constexpr unsigned int KIVO_PRIM_CACHE_CLEAR = 0x00840002;

/* Event kinds of the task callback, and the start event's primitive. */
constexpr int KIVO_EVENT_MESSAGE = 0;
constexpr int KIVO_EVENT_CONTROL = 1;
constexpr int KIVO_EVENT_TASK = 2;
constexpr unsigned int KIVO_PRIM_START = 1;

/* The query client's CacheInfo of every delivered record, and its
 * QueryResult: records were delivered, or none. */
constexpr int KIVO_CACHE_INFO = 1;
constexpr int KIVO_RESULT_FOUND = 0;
constexpr int KIVO_RESULT_NONE = 1;

/* The manager's search mode of the console's test searches. */
constexpr int KIVO_SEARCH_MODE = 1;

/* The type numbers of the request's parameter records. */
constexpr int KIVO_TYPE_CONTACT_ADD = 5;
constexpr int KIVO_TYPE_CONTACT_DELETE = 6;
constexpr int KIVO_TYPE_EVENT_RANGE = 0;
constexpr int KIVO_TYPE_EVENT_ADD = 2;
constexpr int KIVO_TYPE_EVENT_DELETE = 3;
constexpr int KIVO_TYPE_FOLDER_LIST = 0;

/* The platform's log calls take the file and function names as char*; they
 * only read them, and the module's names are constants. */
#define KIVO_LOG_INFO(file, function, ...) \
    LOG_ExpInfo(const_cast<char*>(file), const_cast<char*>(function), __VA_ARGS__)
#define KIVO_LOG_ERROR(file, function, ...) \
    LOG_ExpError(const_cast<char*>(file), const_cast<char*>(function), __VA_ARGS__)

/* The cache-clear notice to the task of the service that caches the
 * phonebook's configuration (kivo task, on a config-changed reply). */
void ClaerCache_NotifyConfigChangeMessage();

#endif
