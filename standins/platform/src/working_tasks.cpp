/*
 * Tasks of the working platform: the registry, each task's thread running
 * its io_context, delivery of messages to the task's callback, and local
 * sends.
 */
#include <sys/epoll.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include "capture_hooks.h"
#include "working.h"

int TaskIdTbl[MAN_MAX_TASKS];
CManIO cManIO;

int plt::faultFor(plt::Fault)
{
    return 0;
}

void plt::noteCreate(unsigned int, unsigned int, int)
{
}

namespace plt::work {

/* Registry: tasks, reader, IPC directory. */
std::mutex g_mu;
std::vector<TaskPtr> g_tasks;  /* in creation order */
TaskPtr g_byIndex[MAN_MAX_TASKS];
std::unique_ptr<Reader> g_reader;
std::string g_ipcDir;  /* resolved: absolute, without links, "." or ".." */
dev_t g_ipcDirDev = 0;
ino_t g_ipcDirIno = 0;
int g_nextFreeId = 0x10000;

std::atomic<unsigned long long> g_handled{0};

/* What the dispatcher of this thread is delivering. */
thread_local Task* t_task = nullptr;
thread_local plt::RawMsg* t_delivering = nullptr;
thread_local bool t_released = false;

bool runCallback(Task& task, int event, unsigned int primitive, void* raw)
{
    try {
        task.callback(event, primitive, raw);
        return true;
    } catch (const std::exception& e) {
        PLT_LOG_ERROR("task %s: callback threw on event %d primitive 0x%08lx: %s",
                      task.name.c_str(), event, static_cast<unsigned long>(primitive), e.what());
    } catch (...) {
        PLT_LOG_ERROR("task %s: callback threw on event %d primitive 0x%08lx",
                      task.name.c_str(), event, static_cast<unsigned long>(primitive));
    }
    return false;
}

/* Runs on the task's thread. The dispatcher owns the raw message: the
 * callback only marks it released, so it is freed exactly once. */
void deliver(Task& task, RawPtr raw, bool fromSocket, bool timer)
{
    const unsigned char* b = raw->bytes();
    unsigned int primitive = (static_cast<unsigned int>(b[0]) << 24) |
                             (static_cast<unsigned int>(b[1]) << 16) |
                             (static_cast<unsigned int>(b[2]) << 8) | b[3];
    const std::size_t length = raw->length;
    if (plt::captureOn())
        plt::captureDelivered(fromSocket ? capture::Kind::Received : timer ? capture::Kind::Timer : capture::Kind::Local,
                              raw->source, task.path, b, length);
    t_delivering = raw.get();
    t_released = false;
    bool ok = runCallback(task, MAN_EVENT_MESSAGE, primitive, plt::rawHandle(raw.get()));
    if (ok && !t_released)
        PLT_LOG_ERROR("task %s did not release message 0x%08lx", task.name.c_str(),
                      static_cast<unsigned long>(primitive));
    t_delivering = nullptr;
    raw.reset();
    if (fromSocket)
        datagramHandled(task, length);
    g_handled++;
}

/* Handlers hold plain Task pointers: a task outlives its io_context's
 * handlers, and a shared pointer there would keep the task alive forever. */
void postRaw(Task& task, RawPtr raw, bool fromSocket)
{
    asio::post(task.io, [t = &task, r = std::move(raw), fromSocket]() mutable {
        deliver(*t, std::move(r), fromSocket);
    });
}

bool hasBytes(const CManMessage& msg)
{
    return Platform::data(msg) != nullptr && Platform::length(msg) >= 4;
}

int copyForTask(const CManMessage& msg, int taskNo, TaskPtr* task, RawPtr* raw)
{
    if (!hasBytes(msg))
        return MAN_E_STATE;
    {
        std::lock_guard<std::mutex> lock(g_mu);
        if (taskNo >= 0 && taskNo < MAN_MAX_TASKS)
            *task = g_byIndex[taskNo];
    }
    if (!*task)
        return MAN_E_NOTASK;
    *raw = makeRaw(Platform::data(msg), Platform::length(msg));
    return *raw ? MAN_OK : MAN_E_NOMEM;
}

namespace {

/* Nothing thrown on a task thread may end the process: a handler that
 * throws (out of memory, say) is logged and the loop goes on. */
void taskMain(Task* task)
{
    t_task = task;
    for (;;) {
        try {
            task->io.run();
            return;
        } catch (const std::exception& e) {
            PLT_LOG_ERROR("task %s: %s", task->name.c_str(), e.what());
        } catch (...) {
            PLT_LOG_ERROR("task %s: unknown exception", task->name.c_str());
        }
    }
}

int createTask(const char* name, int* idSlot, MAN_TaskCallback callback)
{
    if (int fault = plt::faultFor(plt::Fault::TaskCreate))
        return fault;
    if (!validName(name) || idSlot == nullptr || callback == nullptr)
        return MAN_E_FORMAT;
    std::less<const int*> before;
    int index = -1;
    if (!before(idSlot, TaskIdTbl) && before(idSlot, TaskIdTbl + MAN_MAX_TASKS))
        index = static_cast<int>(idSlot - TaskIdTbl);

    std::lock_guard<std::mutex> lock(g_mu);
    if (index >= 0 && (g_byIndex[index] || TaskIdTbl[index] != 0))
        return MAN_E_STATE;
    for (const TaskPtr& t : g_tasks)
        if (t->name == name)
            return MAN_E_STATE;
    if (g_ipcDir.empty()) {
        if (int rc = setIpcDirLocked(PLT_DefaultIpcDir()))
            return rc;
    }
    if (int rc = startReaderLocked())
        return rc;

    auto task = std::make_shared<Task>();
    /* The timers' reactor (an epoll instance, an eventfd and a timerfd) is
     * made now, not on the first TimerLocal on the task's thread, where a
     * failure could not be reported. */
    try {
        asio::steady_timer warm(task->io);
    } catch (const std::system_error& e) {
        PLT_LOG_ERROR("cannot create task %s: no timers: %s", name, e.what());
        return MAN_E_IO;
    }
    task->name = name;
    task->namePath = g_ipcDir + "/" + name + ADDRESS_SUFFIX;
    task->index = index;
    task->callback = callback;
    int fd = -1;
    if (int rc = openSocket(*task, fd))
        return rc;
    task->sock = std::make_shared<Socket>(fd);

    epoll_event ev{};
    ev.events = EPOLLIN;
    ev.data.ptr = task.get();
    task->ep = g_reader->ep;
    if (::epoll_ctl(g_reader->ep, EPOLL_CTL_ADD, fd, &ev) != 0) {
        PLT_LOG_ERROR("cannot watch %s: %s", task->path.c_str(), std::strerror(errno));
        removeSocketFiles(*task);
        return MAN_E_IO;
    }
    *idSlot = index >= 0 ? 0x1000 + index : g_nextFreeId++;
    if (index >= 0)
        g_byIndex[index] = task;
    g_tasks.push_back(task);

    /* Posted before the thread runs, so the start event comes first. */
    asio::post(task->io, [t = task.get()] {
        runCallback(*t, MAN_EVENT_CONTROL, MAN_PRIM_START, nullptr);
        g_handled++;
    });
    try {
        task->thread = std::thread(taskMain, task.get());
    } catch (const std::system_error& e) {
        PLT_LOG_ERROR("cannot start task %s: %s", name, e.what());
        ::epoll_ctl(g_reader->ep, EPOLL_CTL_DEL, fd, nullptr);
        removeSocketFiles(*task);
        g_tasks.pop_back();
        if (index >= 0)
            g_byIndex[index].reset();
        *idSlot = 0;
        return MAN_E_NOMEM;
    }
    return MAN_OK;
}

}  // namespace

}  // namespace plt::work

using namespace plt::work;

/* Whatever a task needs is acquired here, where a failure is a result code;
 * nothing thrown leaves. */
int MAN_ExpTCreate(const char* name, int* idSlot, int /*arg*/, MAN_TaskCallback callback)
{
    try {
        return createTask(name, idSlot, callback);
    } catch (const std::bad_alloc&) {
        PLT_LOG_ERROR("cannot create task %s: out of memory", validName(name) ? name : "?");
        return MAN_E_NOMEM;
    } catch (const std::exception& e) {
        PLT_LOG_ERROR("cannot create task %s: %s", validName(name) ? name : "?", e.what());
        return MAN_E_IO;
    }
}

void MAN_ExpPFree(void* raw)
{
    if (raw != nullptr && plt::rawOf(raw) == t_delivering && !t_released) {
        t_released = true;
        return;
    }
    if (raw != nullptr && plt::rawOf(raw) == t_delivering)
        PLT_LOG_ERROR("message %p released twice, ignored", raw);
    else
        PLT_LOG_ERROR("message %p is not the message being delivered, ignored", raw);
}

int PLT_SendLocal(CManMessage& msg, int taskNo)
{
    TaskPtr task;
    RawPtr raw(nullptr, plt::rawFree);
    if (int code = copyForTask(msg, taskNo, &task, &raw))
        return code;
    try {
        postRaw(*task, std::move(raw));
    } catch (const std::bad_alloc&) {
        return MAN_E_NOMEM;
    }
    return MAN_OK;
}
