/*
 * What the files of the working platform share: the task and reader
 * records, the registry and the settings, and the few functions one part
 * calls in another. Private to the working build; internal.h holds what it
 * shares with the recording build.
 *
 * Locks nest only in this order: g_drainMu (Drain and Shutdown), then
 * g_mu (the registry), g_dropMu, g_termMu or a task's pauseMu, one at a
 * time; the log's g_sinkMu is innermost. None is held across a send or a
 * receive: the sockets are taken out of the registry and used unlocked.
 */
#ifndef PLATFORM_WORKING_H
#define PLATFORM_WORKING_H

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>

#include "internal.h"
#include "platform/log.h"
#include "platform/manmsg.h"
#include "platform/mantask.h"
#include "platform/runtime.h"

#define PLT_LOG_ERROR(...) LOG_ExpError("platform", __func__, __LINE__, __VA_ARGS__)
/* The sends log under the firmware's names of the calls. */
#define PLT_LOG_ERROR_IN(function, ...) LOG_ExpError("platform", function, __LINE__, __VA_ARGS__)

/* The table with its size, which the firmware's header leaves open. */
extern int TaskIdTbl[MAN_MAX_TASKS];

/* Hidden: the library exports the firmware's calls and the stand-in's
 * extras, not how they are made. */
namespace plt {
namespace work __attribute__((visibility("hidden"))) {

namespace asio = boost::asio;

constexpr const char* ADDRESS_SUFFIX = "@Local";
constexpr std::size_t MAX_NAME = 31;
constexpr std::size_t NONCE_DIGITS = 12;  /* hex digits that tell instances apart */
/* Longest socket file name: name, "@Local", '.', the instance's digits. */
constexpr std::size_t MAX_FILE = MAX_NAME + 6 + 1 + NONCE_DIGITS;
constexpr int BURST = 64;  /* datagrams taken from one socket per wake-up */

using RawPtr = std::unique_ptr<plt::RawMsg, void (*)(plt::RawMsg*)>;

inline RawPtr makeRaw(const unsigned char* data, std::size_t length)
{
    return RawPtr(plt::rawAlloc(data, length), plt::rawFree);
}

/* A socket fd shared by its task and the senders using it right now. */
struct Socket {
    int fd;
    explicit Socket(int f) : fd(f) {}
    ~Socket() { ::close(fd); }
};

struct Task {
    std::string name;
    std::string path;      /* the instance's socket */
    std::string namePath;  /* the link "<dir>/<name>@Local" to it */
    int index = -1;
    MAN_TaskCallback callback = nullptr;
    std::shared_ptr<Socket> sock;
    /* Datagrams taken from the socket and not yet handled. At the bound the
     * reader stops watching the socket (`paused`) and leaves the datagrams
     * to the kernel's queue, whose limit pushes the senders back. */
    std::atomic<std::size_t> queuedMessages{0};
    std::atomic<std::size_t> queuedBytes{0};
    std::mutex pauseMu;
    bool paused = false;
    unsigned long bursts = 0;
    int ep = -1;  /* the reader's epoll instance, which outlives the task's thread */
    asio::io_context io;
    asio::executor_work_guard<asio::io_context::executor_type> guard{io.get_executor()};
    std::thread thread;
};
using TaskPtr = std::shared_ptr<Task>;

struct Reader {
    int ep = -1;
    int wake = -1;
    std::atomic<bool> stop{false};
    asio::io_context io;
    asio::executor_work_guard<asio::io_context::executor_type> guard{io.get_executor()};
    std::vector<unsigned char> buf = std::vector<unsigned char>(MAN_MAX_MSG + 1);
    std::thread thread;
    ~Reader()
    {
        if (ep >= 0)
            ::close(ep);
        if (wake >= 0)
            ::close(wake);
    }
};

/* Registry: tasks, reader, IPC directory (working_tasks.cpp). */
extern std::mutex g_mu;
extern std::vector<TaskPtr> g_tasks;  /* in creation order */
extern TaskPtr g_byIndex[MAN_MAX_TASKS];
extern std::unique_ptr<Reader> g_reader;
extern std::string g_ipcDir;  /* resolved: absolute, without links, "." or ".." */
extern dev_t g_ipcDirDev;
extern ino_t g_ipcDirIno;
extern int g_nextFreeId;

/* Messages handled by all tasks so far: Drain waits until it stands still. */
extern std::atomic<unsigned long long> g_handled;

/* What the dispatcher of this thread is delivering. */
extern thread_local Task* t_task;
extern thread_local plt::RawMsg* t_delivering;
extern thread_local bool t_released;

/* Addressing and sockets (working_address.cpp). */
bool validName(const char* name);
bool validAddress(const char* address);
bool validInstance(const char* address);
bool makeSockaddr(const std::string& path, sockaddr_un& sa);
std::string peerName(const sockaddr_un& sa, socklen_t len);
void senderAddress(const sockaddr_un& sa, socklen_t len, char* out, std::size_t size);
int setIpcDirLocked(const std::string& dir);
int openSocket(Task& task, int& fdOut);
void removeSocketFiles(const Task& task);

/* Tasks (working_tasks.cpp). */
void deliver(Task& task, RawPtr raw, bool fromSocket = false, bool timer = false);
void postRaw(Task& task, RawPtr raw, bool fromSocket = false);
bool runCallback(Task& task, int event, unsigned int primitive, void* raw);
/* A created or assigned message, with at least its primitive. */
bool hasBytes(const CManMessage& msg);
/* The task with index taskNo and a raw copy of the message for it: 0, or
 * MAN_E_STATE (no message), MAN_E_NOTASK, MAN_E_NOMEM. */
int copyForTask(const CManMessage& msg, int taskNo, TaskPtr* task, RawPtr* raw);

/* The reader and the sends (working_ipc.cpp). */
void datagramHandled(Task& task, std::size_t length);
void readerPost(Reader& r, std::function<void()> f);
void receiveFrom(Reader& r, Task& task, int limit);
int startReaderLocked();
void forgetDrops();

/* Debug terminal (working_consoles.cpp). */
void forgetConsoles();

}  // namespace work
}  // namespace plt

#endif
