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

/* Constants of the module. */
constexpr int KIVO_TASK_INDEX = 67;
constexpr int KIVO_TASK_ARG = 8;
constexpr unsigned int KIVO_QUERY_TIME = 5000;
constexpr int KIVO_CACHE_TASK = 64;
constexpr unsigned int KIVO_PRIM_TIMER = 0x00000002;
constexpr unsigned int KIVO_PRIM_RESULT = 0x00830002;
constexpr unsigned int KIVO_PRIM_CHANGE = 0x00830001;
constexpr unsigned int KIVO_PRIM_CACHE_CLEAR = 0x00840002;

/* The cache-clear notice to the task of the service that caches the
 * phonebook's configuration (kivo task, on a config-changed reply). */
void ClaerCache_NotifyConfigChangeMessage();

#endif
