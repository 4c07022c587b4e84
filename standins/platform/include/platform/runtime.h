/*
 * Control of the working platform by the programs that embed it (host,
 * daemon, tests). The module never calls these.
 */
#ifndef PLATFORM_RUNTIME_H
#define PLATFORM_RUNTIME_H

#include <cstddef>
#include <string>

#include "platform/attrs.h"

/* Directory of the IPC sockets: created with mode 0700 if missing. Must be
 * set before the first task is created. Result 0 or a MAN_E_ code. */
PLT_API int PLT_SetIpcDir(const std::string& dir);
PLT_API std::string PLT_IpcDir();

/* The default IPC directory: $XDG_RUNTIME_DIR/kivo-ipc, or
 * /tmp/kivo-ipc-<uid> when that is not set. */
PLT_API std::string PLT_DefaultIpcDir();

/* The IPC address a received message was sent from, so that a server can
 * answer it: the sending task's instance ("name@Local.<nonce>"), or
 * "name@Local" for a peer bound at its name; "" for local and timer
 * messages and for senders outside the IPC directory. Valid while the raw
 * message is. */
PLT_API const char* PLT_MessageSource(const void* raw);

/* Bound of each task's queue of received datagrams not yet handled, in
 * messages and bytes (0: the default, 1024 messages and 4 MiB). At the
 * bound the socket is no longer read: datagrams wait in the kernel's queue,
 * whose limit pushes the senders back (a sender that does not wait drops
 * them). Logged once per burst. */
PLT_API void PLT_SetQueueLimits(std::size_t messages, std::size_t bytes);

/* Whether SendIpc waits (up to 1 s) while the receiver's queue is full
 * (default). A server turns it off: it never waits for one peer. A
 * message that the receiver's queue cannot take at once is then not sent
 * and not logged: PLT_SendIpc returns MAN_E_FULL, and the sender decides
 * (webconfd keeps it and tries again). A destination where nothing is
 * bound (gone) gives MAN_E_NOTASK, logged. */
PLT_API void PLT_SetSendBlocking(bool blocking);

/* Length of one TimerLocal unit in microseconds (default 1000). */
PLT_API void PLT_SetTimerUnitUs(unsigned int us);

/* Waits until every task has handled all messages and events queued to it
 * (timers not yet due are not waited for). */
PLT_API void PLT_Drain();

/* Stops all tasks, closes and removes their sockets and forgets the
 * consoles; messages still queued are released unhandled. Afterwards tasks
 * can be created anew (tests do). */
PLT_API void PLT_Shutdown();

/* Where log records and terminal output go. By default a log record is one
 * line on standard error ("INFO kivoexp KIVO_ExpInit:69 text") and terminal
 * output goes to standard output unchanged. A null sink restores the
 * default. Sinks are called from any thread, one call at a time. */
enum { PLT_LOG_INFO = 0, PLT_LOG_ERROR = 1 };
typedef void (*PLT_LogSink)(int level, const char* file, const char* function, int line,
                            const char* text);
typedef void (*PLT_TerminalSink)(const char* bytes, std::size_t length);
PLT_API void PLT_SetLogSink(PLT_LogSink sink);
PLT_API void PLT_SetTerminalSink(PLT_TerminalSink sink);

/* The debug terminal's line handling. At the top level a line naming a
 * registered console enters it; inside a console every line goes to its
 * interpreter until the interpreter calls DTM_ExpReturn. Returns the
 * interpreter's result, or 0. */
PLT_API int PLT_TerminalLine(const char* line);
/* Name of the console the terminal is in; empty at the top level. */
PLT_API std::string PLT_CurrentConsole();

#endif
