/*
 * IPC of the working platform: the reader thread that receives the
 * datagrams of all tasks, the bound on each task's queue, and the sends.
 *
 * One reader thread drains the sockets of all tasks and posts each datagram
 * to its task. A task blocked in SendIpc (the receiver's queue is full) thus
 * never stops its own socket from being drained, so two processes sending to
 * each other cannot deadlock. The sockets stay blocking so that SO_SNDTIMEO
 * bounds a send; the reader therefore waits in epoll itself instead of
 * registering the sockets with asio (which would make them non-blocking).
 * Work for the reader thread (Drain markers) goes through its io_context,
 * which the reader polls when its eventfd is signalled.
 */
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>

#include <boost/asio/post.hpp>

#include "capture_hooks.h"
#include "working.h"

namespace {

constexpr std::size_t DEFAULT_QUEUE_MESSAGES = 1024;
constexpr std::size_t DEFAULT_QUEUE_BYTES = 4 << 20;
std::atomic<std::size_t> g_queueMessages{DEFAULT_QUEUE_MESSAGES};
std::atomic<std::size_t> g_queueBytes{DEFAULT_QUEUE_BYTES};
std::atomic<bool> g_sendBlocking{true};

/* Destinations whose queue was full at the last send, with the messages
 * dropped since: a burst of drops is logged once at its start and summed up
 * when the destination takes messages again. */
std::mutex g_dropMu;
std::map<std::string, unsigned long> g_dropped;
std::atomic<bool> g_anyDropped{false};
constexpr std::size_t MAX_DROP_ENTRIES = 256;

}  // namespace

namespace plt::work {

namespace {

bool queueFull(const Task& task, std::size_t messages, std::size_t bytes)
{
    return task.queuedMessages.load() >= messages || task.queuedBytes.load() >= bytes;
}

}  // namespace

/* Task thread, after a datagram was handled: the reader watches the socket
 * again once the queue is down to half its bound. */
void datagramHandled(Task& task, std::size_t length)
{
    task.queuedMessages--;
    task.queuedBytes -= length;
    if (queueFull(task, g_queueMessages.load() / 2, g_queueBytes.load() / 2))
        return;
    std::lock_guard<std::mutex> lock(task.pauseMu);
    if (!task.paused)
        return;
    task.paused = false;
    epoll_event ev{};
    ev.events = EPOLLIN;
    ev.data.ptr = &task;
    ::epoll_ctl(task.ep, EPOLL_CTL_MOD, task.sock->fd, &ev);
}

void readerPost(Reader& r, std::function<void()> f)
{
    asio::post(r.io, std::move(f));
    uint64_t one = 1;
    ssize_t n = ::write(r.wake, &one, sizeof one);
    (void)n;  /* the counter cannot overflow in practice */
}

namespace {

/* Reader thread: stops watching the socket of a task whose queue is full;
 * false then. Logged once per burst. */
bool roomInQueue(Reader& r, Task& task)
{
    const std::size_t messages = g_queueMessages.load();
    const std::size_t bytes = g_queueBytes.load();
    if (!queueFull(task, messages, bytes))
        return true;
    std::lock_guard<std::mutex> lock(task.pauseMu);
    /* Checked again under the lock: the task may have emptied it. */
    if (task.paused || !queueFull(task, messages, bytes))
        return !task.paused;
    task.paused = true;
    epoll_event ev{};
    ev.data.ptr = &task;
    ::epoll_ctl(r.ep, EPOLL_CTL_MOD, task.sock->fd, &ev);
    PLT_LOG_ERROR("task %s: queue full (%lu messages, %lu bytes), further datagrams wait in its socket "
                  "(burst %lu)",
                  task.name.c_str(), static_cast<unsigned long>(task.queuedMessages.load()),
                  static_cast<unsigned long>(task.queuedBytes.load()), ++task.bursts);
    return false;
}

}  // namespace

/* Reader thread: takes up to `limit` datagrams from the task's socket. */
void receiveFrom(Reader& r, Task& task, int limit)
{
    for (int i = 0; i < limit && roomInQueue(r, task); i++) {
        sockaddr_un from;
        socklen_t fromLen = sizeof from;
        ssize_t n = ::recvfrom(task.sock->fd, r.buf.data(), r.buf.size(), MSG_DONTWAIT,
                               reinterpret_cast<sockaddr*>(&from), &fromLen);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK)
                PLT_LOG_ERROR("receive on %s: %s", task.path.c_str(), std::strerror(errno));
            return;
        }
        std::size_t len = static_cast<std::size_t>(n);
        if (len > MAN_MAX_MSG || len < 4) {
            if (plt::captureOn())
                plt::captureDropped(peerName(from, fromLen), task.path, r.buf.data(), len);
            PLT_LOG_ERROR("datagram for %s from %s %s, dropped", task.name.c_str(),
                          peerName(from, fromLen).c_str(),
                          len < 4 ? "shorter than 4 bytes" : "longer than 65536 bytes");
            continue;
        }
        RawPtr raw = makeRaw(r.buf.data(), len);
        CManMessage check;
        if (!raw || check.Assign(plt::rawHandle(raw.get())) != MAN_OK) {
            if (plt::captureOn())
                plt::captureDropped(peerName(from, fromLen), task.path, r.buf.data(), len);
            PLT_LOG_ERROR("datagram for %s from %s (%lu bytes) %s, dropped", task.name.c_str(),
                          peerName(from, fromLen).c_str(), static_cast<unsigned long>(len),
                          raw ? "malformed" : "out of memory");
            continue;
        }
        senderAddress(from, fromLen, raw->source, sizeof raw->source);
        task.queuedMessages++;
        task.queuedBytes += len;
        postRaw(task, std::move(raw), true);
    }
}

namespace {

void readerLoop(Reader* r)
{
    epoll_event events[16];
    while (!r->stop.load()) {
        int n = ::epoll_wait(r->ep, events, 16, -1);
        if (n < 0 && errno != EINTR) {
            PLT_LOG_ERROR("epoll_wait: %s", std::strerror(errno));
            return;
        }
        for (int i = 0; i < n; i++) {
            if (events[i].data.ptr == nullptr) {
                uint64_t count;
                ssize_t got = ::read(r->wake, &count, sizeof count);
                (void)got;
            } else {
                /* The registry keeps every task alive until the reader is stopped. */
                receiveFrom(*r, *static_cast<Task*>(events[i].data.ptr), BURST);
            }
        }
        r->io.poll();
    }
}

}  // namespace

int startReaderLocked()
{
    if (g_reader)
        return MAN_OK;
    auto r = std::make_unique<Reader>();
    r->ep = ::epoll_create1(EPOLL_CLOEXEC);
    r->wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    epoll_event ev{};
    ev.events = EPOLLIN;
    ev.data.ptr = nullptr;
    if (r->ep < 0 || r->wake < 0 || ::epoll_ctl(r->ep, EPOLL_CTL_ADD, r->wake, &ev) != 0) {
        PLT_LOG_ERROR("cannot start the IPC reader: %s", std::strerror(errno));
        return MAN_E_IO;
    }
    try {
        r->thread = std::thread(readerLoop, r.get());
    } catch (const std::system_error& e) {
        PLT_LOG_ERROR("cannot start the IPC reader: %s", e.what());
        return MAN_E_NOMEM;
    }
    g_reader = std::move(r);
    return MAN_OK;
}

/* Shutdown forgets the bursts of drops with the tasks. */
void forgetDrops()
{
    std::lock_guard<std::mutex> lock(g_dropMu);
    g_dropped.clear();
    g_anyDropped.store(false);
}

}  // namespace plt::work

using namespace plt::work;

int PLT_SendIpc(CManMessage& msg, const char* source, const char* destination)
{
    if (!hasBytes(msg))
        return MAN_E_STATE;
    if (!validAddress(destination) && !validInstance(destination)) {
        PLT_LOG_ERROR_IN("SendIpc", "invalid IPC address %s", destination ? destination : "(null)");
        return MAN_E_NOTASK;
    }
    std::shared_ptr<Socket> sock;
    std::string path;
    {
        std::lock_guard<std::mutex> lock(g_mu);
        for (const TaskPtr& t : g_tasks)
            if (source != nullptr && t->name + ADDRESS_SUFFIX == source)
                sock = t->sock;
        if (!sock && !g_tasks.empty())
            sock = g_tasks.front()->sock;
        path = g_ipcDir + "/" + destination;
    }
    if (!sock) {
        PLT_LOG_ERROR_IN("SendIpc", "no task to send from to %s", destination);
        return MAN_E_NOTASK;
    }
    sockaddr_un sa;
    if (!makeSockaddr(path, sa)) {
        PLT_LOG_ERROR_IN("SendIpc", "IPC path for %s too long", destination);
        return MAN_E_NOTASK;
    }
    ssize_t n;
    const int flags = g_sendBlocking.load() ? 0 : MSG_DONTWAIT;
    if (plt::captureOn())
        plt::captureSent(sock->fd, destination, Platform::data(msg), Platform::length(msg), 0);
    do {
        n = ::sendto(sock->fd, Platform::data(msg), Platform::length(msg), flags, reinterpret_cast<sockaddr*>(&sa),
                     sizeof sa);
    } while (n < 0 && errno == EINTR);
    if (n < 0 && plt::captureOn())
        plt::captureSent(sock->fd, destination, Platform::data(msg), Platform::length(msg), errno);
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK) && flags != 0)
        return MAN_E_FULL;   // the sender asked not to wait: it keeps the message
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
        std::lock_guard<std::mutex> lock(g_dropMu);
        if (g_dropped.size() >= MAX_DROP_ENTRIES && g_dropped.count(destination) == 0)
            g_dropped.clear();
        if (g_dropped[destination]++ == 0)
            PLT_LOG_ERROR_IN("SendIpc", "send to %s dropped: its queue is full (further drops are counted)", destination);
        g_anyDropped.store(true);
        return MAN_E_IO;
    }
    if (n < 0) {
        const int error = errno;
        PLT_LOG_ERROR_IN("SendIpc", "send to %s failed: %s", destination, std::strerror(error));
        /* Nothing bound at the address (any more): the destination is gone. */
        return error == ENOENT || error == ECONNREFUSED ? MAN_E_NOTASK : MAN_E_IO;
    }
    if (g_anyDropped.load()) {
        std::lock_guard<std::mutex> lock(g_dropMu);
        auto it = g_dropped.find(destination);
        if (it != g_dropped.end()) {
            PLT_LOG_ERROR_IN("SendIpc", "send to %s: %lu messages dropped while its queue was full", destination, it->second);
            g_dropped.erase(it);
        }
        g_anyDropped.store(!g_dropped.empty());
    }
    return MAN_OK;
}

void PLT_SetQueueLimits(std::size_t messages, std::size_t bytes)
{
    g_queueMessages.store(messages > 0 ? messages : DEFAULT_QUEUE_MESSAGES);
    g_queueBytes.store(bytes > 0 ? bytes : DEFAULT_QUEUE_BYTES);
}

void PLT_SetSendBlocking(bool blocking)
{
    g_sendBlocking.store(blocking);
}
