/*
 * The working platform for programs: tasks on threads, local messages and
 * timers through each task's io_context, IPC over Unix datagram sockets, the
 * log, the terminal output and the debug terminal's consoles.
 *
 * One reader thread drains the sockets of all tasks and posts each datagram
 * to its task. A task blocked in SendIpc (the receiver's queue is full) thus
 * never stops its own socket from being drained, so two processes sending to
 * each other cannot deadlock. The sockets stay blocking so that SO_SNDTIMEO
 * bounds a send; the reader therefore waits in epoll itself instead of
 * registering the sockets with asio (which would make them non-blocking).
 * Work for the reader thread (Drain markers) goes through its io_context,
 * which the reader polls when its eventfd is signalled.
 *
 * Addressing: each task binds a socket path of its own instance,
 * "<name>@Local.<12 hex digits>", and points the name "<name>@Local" at it
 * with a symbolic link. Senders reach the live task through the name; replies
 * go to the instance path the datagram came from, which dies with its
 * process, so a reply meant for an earlier process never reaches a later one
 * that took the same name.
 */
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <dirent.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include "internal.h"
#include "platform/dtm.h"
#include "platform/log.h"
#include "platform/manmsg.h"
#include "platform/mantask.h"
#include "platform/runtime.h"

namespace asio = boost::asio;

int TaskIdTbl[MAN_MAX_TASKS];
CManIO cManIO;

int plt::faultFor(plt::Fault)
{
    return 0;
}

void plt::noteCreate(unsigned int, unsigned int, int)
{
}

#define PLT_LOG_ERROR(...) LOG_ExpError("platform", __func__, __LINE__, __VA_ARGS__)
/* The sends log under the firmware's names of the calls. */
#define PLT_LOG_ERROR_IN(function, ...) LOG_ExpError("platform", function, __LINE__, __VA_ARGS__)

namespace {

constexpr const char* ADDRESS_SUFFIX = "@Local";
constexpr std::size_t MAX_NAME = 31;
constexpr std::size_t NONCE_DIGITS = 12;  /* hex digits that tell instances apart */
/* Longest socket file name: name, "@Local", '.', the instance's digits. */
constexpr std::size_t MAX_FILE = MAX_NAME + 6 + 1 + NONCE_DIGITS;
constexpr int BURST = 64;  /* datagrams taken from one socket per wake-up */

using RawPtr = std::unique_ptr<plt::RawMsg, void (*)(plt::RawMsg*)>;

RawPtr makeRaw(const unsigned char* data, std::size_t length)
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

struct Console {
    std::string name;
    std::string title;
    DTM_Interpreter interpreter;
};

/* Registry: tasks, reader, IPC directory. */
std::mutex g_mu;
std::vector<TaskPtr> g_tasks;  /* in creation order */
TaskPtr g_byIndex[MAN_MAX_TASKS];
std::unique_ptr<Reader> g_reader;
std::string g_ipcDir;  /* resolved: absolute, without links, "." or ".." */
dev_t g_ipcDirDev = 0;
ino_t g_ipcDirIno = 0;
int g_nextFreeId = 0x10000;

std::mutex g_drainMu;  /* Drain and Shutdown never overlap */
std::atomic<unsigned long long> g_handled{0};
std::atomic<unsigned int> g_timerUnitUs{1000};
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

std::mutex g_sinkMu;
PLT_LogSink g_logSink = nullptr;
PLT_TerminalSink g_termSink = nullptr;

std::mutex g_termMu;
std::vector<Console> g_consoles;
std::string g_current;

/* What the dispatcher of this thread is delivering. */
thread_local Task* t_task = nullptr;
thread_local plt::RawMsg* t_delivering = nullptr;
thread_local bool t_released = false;

std::string vformat(const char* format, va_list ap)
{
    if (format == nullptr)
        return std::string();
    char small[256];
    va_list copy;
    va_copy(copy, ap);
    int n = std::vsnprintf(small, sizeof small, format, copy);
    va_end(copy);
    if (n < 0)
        return "(bad format)";
    if (static_cast<std::size_t>(n) < sizeof small)
        return std::string(small, static_cast<std::size_t>(n));
    std::string big(static_cast<std::size_t>(n) + 1, '\0');
    std::vsnprintf(&big[0], big.size(), format, ap);
    big.resize(static_cast<std::size_t>(n));
    return big;
}

/* Length of the well-formed UTF-8 sequence of 2 to 4 bytes at `p`, 0 when
 * there is none. */
std::size_t utf8Sequence(const unsigned char* p, std::size_t left)
{
    std::size_t n = p[0] >= 0xF0 && p[0] <= 0xF4 ? 4 : p[0] >= 0xE0 ? 3 : p[0] >= 0xC2 && p[0] < 0xE0 ? 2 : 0;
    if (n == 0 || n > left)
        return 0;
    for (std::size_t i = 1; i < n; i++)
        if ((p[i] & 0xC0) != 0x80)
            return 0;
    return n;
}

/* A log record is one line whatever its text holds: control bytes (C0,
 * DEL, C1 whether raw or written in UTF-8) are shown as \xNN, so text from
 * outside can neither end the line nor steer the terminal. Other bytes
 * (UTF-8 from the daemon, ISO-8859-1 from the module) stay as they are. */
std::string printable(const std::string& text)
{
    std::string out;
    out.reserve(text.size());
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t n = utf8Sequence(p + i, text.size() - i);
        const bool c1InUtf8 = n == 2 && p[i] == 0xC2 && p[i + 1] < 0xA0;
        if (n > 0 && !c1InUtf8) {
            out.append(text, i, n);
            i += n;
            continue;
        }
        for (std::size_t end = i + (n > 0 ? n : 1); i < end; i++) {
            if (p[i] < 0x20 || (p[i] >= 0x7F && p[i] < 0xA0) || c1InUtf8) {
                char hex[5];
                std::snprintf(hex, sizeof hex, "\\x%02X", p[i]);
                out += hex;
            } else {
                out += static_cast<char>(p[i]);
            }
        }
    }
    return out;
}

void emitLog(int level, const char* file, const char* function, int line, std::string text)
{
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.pop_back();
    file = file ? file : "?";
    function = function ? function : "?";
    std::lock_guard<std::mutex> lock(g_sinkMu);
    if (g_logSink != nullptr) {
        g_logSink(level, file, function, line, text.c_str());
        return;
    }
    plt::writeOutputf(2, "%s %s %s:%d %s\n", level == PLT_LOG_ERROR ? "ERROR" : "INFO", printable(file).c_str(),
                      printable(function).c_str(), line, printable(text).c_str());
}

void emitTerminal(const std::string& bytes)
{
    std::lock_guard<std::mutex> lock(g_sinkMu);
    if (g_termSink != nullptr) {
        g_termSink(bytes.data(), bytes.size());
        return;
    }
    plt::writeOutput(1, bytes);
}

bool validName(const char* name)
{
    if (name == nullptr)
        return false;
    std::size_t n = std::strlen(name);
    if (n == 0 || n > MAX_NAME)
        return false;
    for (std::size_t i = 0; i < n; i++) {
        char c = name[i];
        bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                  c == '_' || c == '.' || c == '-';
        if (!ok)
            return false;
    }
    return true;
}

/* "name@Local" with a valid name. */
bool validAddress(const char* address)
{
    if (address == nullptr)
        return false;
    std::string a(address);
    std::size_t suffix = std::strlen(ADDRESS_SUFFIX);
    if (a.size() <= suffix || a.compare(a.size() - suffix, suffix, ADDRESS_SUFFIX) != 0)
        return false;
    return validName(a.substr(0, a.size() - suffix).c_str());
}

/* "name@Local.<12 hex digits>": the address of one task instance. */
bool validInstance(const char* address)
{
    if (address == nullptr)
        return false;
    std::string a(address);
    if (a.size() <= NONCE_DIGITS + 1 || a[a.size() - NONCE_DIGITS - 1] != '.')
        return false;
    const std::string digits = a.substr(a.size() - NONCE_DIGITS);
    if (digits.find_first_not_of("0123456789abcdef") != std::string::npos)
        return false;
    return validAddress(a.substr(0, a.size() - NONCE_DIGITS - 1).c_str());
}

bool makeSockaddr(const std::string& path, sockaddr_un& sa)
{
    std::memset(&sa, 0, sizeof sa);
    sa.sun_family = AF_UNIX;
    if (path.size() >= sizeof sa.sun_path)
        return false;
    std::memcpy(sa.sun_path, path.c_str(), path.size() + 1);
    return true;
}

/* Printable form of a peer's address for log records. */
std::string peerName(const sockaddr_un& sa, socklen_t len)
{
    if (len <= offsetof(sockaddr_un, sun_path))
        return "(unbound)";
    std::size_t max = len - offsetof(sockaddr_un, sun_path);
    std::string s;
    for (std::size_t i = 0; i < max && i < sizeof sa.sun_path && sa.sun_path[i] != '\0'; i++) {
        char c = sa.sun_path[i];
        s += (c >= 0x20 && c < 0x7f) ? c : '?';
    }
    return s.empty() ? "(unbound)" : s;
}

/* The address of a sender bound in our IPC directory: the socket file's
 * name, when it is a valid address. */
void senderAddress(const sockaddr_un& sa, socklen_t len, char* out, std::size_t size)
{
    out[0] = '\0';
    const std::string path = peerName(sa, len);
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return;
    /* Another program may write the same directory differently. */
    if (path.compare(0, slash, g_ipcDir) != 0 || slash != g_ipcDir.size()) {
        struct stat st;
        if (::stat(path.substr(0, slash + 1).c_str(), &st) != 0 || st.st_dev != g_ipcDirDev ||
            st.st_ino != g_ipcDirIno)
            return;
    }
    const std::string name = path.substr(slash + 1);
    if ((validAddress(name.c_str()) || validInstance(name.c_str())) && name.size() < size)
        std::memcpy(out, name.c_str(), name.size() + 1);
}

int setIpcDirLocked(const std::string& dir)
{
    if (!g_tasks.empty())
        return MAN_E_STATE;
    /* Longest socket path: dir "/" and the longest instance file name
     * must fit sun_path. */
    if (dir.empty() || dir.size() + 1 + MAX_FILE >= sizeof(sockaddr_un{}.sun_path))
        return MAN_E_SIZE;
    bool created = false;
    for (std::size_t pos = 1; pos <= dir.size(); pos++) {
        if (pos != dir.size() && dir[pos] != '/')
            continue;
        std::string prefix = dir.substr(0, pos);
        if (::mkdir(prefix.c_str(), 0700) == 0)
            created = pos == dir.size();
        else if (errno != EEXIST)
            break;
    }
    if (created)
        ::chmod(dir.c_str(), 0700);
    struct stat st;
    if (::lstat(dir.c_str(), &st) != 0) {
        PLT_LOG_ERROR("IPC directory %s: %s", dir.c_str(), std::strerror(errno));
        return MAN_E_IO;
    }
    if (!S_ISDIR(st.st_mode) || st.st_uid != ::geteuid() || (st.st_mode & 077) != 0) {
        PLT_LOG_ERROR("IPC directory %s refused: must be a directory of this user with mode 0700",
                      dir.c_str());
        return MAN_E_IO;
    }
    char* resolved = ::realpath(dir.c_str(), nullptr);
    if (resolved == nullptr) {
        PLT_LOG_ERROR("IPC directory %s: %s", dir.c_str(), std::strerror(errno));
        return MAN_E_IO;
    }
    const std::string canonical = resolved;
    std::free(resolved);
    if (canonical.size() + 1 + MAX_FILE >= sizeof(sockaddr_un{}.sun_path))
        return MAN_E_SIZE;
    g_ipcDir = canonical;
    g_ipcDirDev = st.st_dev;
    g_ipcDirIno = st.st_ino;
    return MAN_OK;
}

/* Whether a process has a socket bound at `path` (following a link). */
bool liveSocket(const std::string& path)
{
    sockaddr_un sa;
    if (!makeSockaddr(path, sa))
        return false;
    int probe = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    bool live = probe >= 0 && ::connect(probe, reinterpret_cast<sockaddr*>(&sa), sizeof sa) == 0;
    if (probe >= 0)
        ::close(probe);
    return live;
}

/* Removes the socket files of earlier instances of `name` whose process
 * has gone (killed, say), so that they do not pile up. */
void removeDeadInstances(const std::string& dir, const std::string& name)
{
    DIR* d = ::opendir(dir.c_str());
    if (d == nullptr)
        return;
    const std::string prefix = name + ADDRESS_SUFFIX + ".";
    while (dirent* e = ::readdir(d)) {
        const std::string file = e->d_name;
        if (file.compare(0, prefix.size(), prefix) != 0)
            continue;
        const std::string path = dir + "/" + file;
        struct stat st;
        if (::lstat(path.c_str(), &st) == 0 && (S_ISLNK(st.st_mode) || (S_ISSOCK(st.st_mode) && !liveSocket(path))))
            ::unlink(path.c_str());
    }
    ::closedir(d);
}

std::string nonce()
{
    static std::mutex mu;
    static std::mt19937_64 gen{(static_cast<uint64_t>(std::random_device{}()) << 32) ^ std::random_device{}() ^
                               static_cast<uint64_t>(::getpid())};
    std::lock_guard<std::mutex> lock(mu);
    char text[NONCE_DIGITS + 1];
    std::snprintf(text, sizeof text, "%012llx",
                  static_cast<unsigned long long>(gen() & ((1ULL << (4 * NONCE_DIGITS)) - 1)));
    return text;
}

/* Binds the task's socket at a path of its own instance and points the
 * task's name at it. A name that a live process serves is left alone. */
int openSocket(Task& task, int& fdOut)
{
    struct stat st;
    if (::lstat(task.namePath.c_str(), &st) == 0) {
        if (!S_ISSOCK(st.st_mode) && !S_ISLNK(st.st_mode)) {
            PLT_LOG_ERROR("%s exists and is not a socket", task.namePath.c_str());
            return MAN_E_IO;
        }
        if (liveSocket(task.namePath)) {
            PLT_LOG_ERROR("%s is in use by another process", task.namePath.c_str());
            return MAN_E_IO;
        }
    }
    removeDeadInstances(g_ipcDir, task.name);
    int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        PLT_LOG_ERROR("cannot open a socket for %s: %s", task.name.c_str(), std::strerror(errno));
        return MAN_E_IO;
    }
    std::string file;
    bool bound = false;
    for (int attempt = 0; attempt < 8 && !bound; attempt++) {
        file = task.name + ADDRESS_SUFFIX + "." + nonce();
        task.path = g_ipcDir + "/" + file;
        sockaddr_un sa;
        if (!makeSockaddr(task.path, sa)) {
            ::close(fd);
            return MAN_E_SIZE;
        }
        bound = ::bind(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa) == 0;
        if (!bound && errno != EADDRINUSE)
            break;
    }
    if (!bound) {
        PLT_LOG_ERROR("cannot bind %s: %s", task.path.c_str(), std::strerror(errno));
        ::close(fd);
        return MAN_E_IO;
    }
    /* The name changes over to the new instance in one step. */
    const std::string link = task.path + "~";
    if (::symlink(file.c_str(), link.c_str()) != 0 || ::rename(link.c_str(), task.namePath.c_str()) != 0) {
        PLT_LOG_ERROR("cannot point %s at its task: %s", task.namePath.c_str(), std::strerror(errno));
        ::unlink(link.c_str());
        ::unlink(task.path.c_str());
        ::close(fd);
        return MAN_E_IO;
    }
    timeval tv{1, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
    fdOut = fd;
    return MAN_OK;
}

/* Removes the task's socket, and its name when that still leads to it. */
void removeSocketFiles(const Task& task)
{
    char target[256];
    const ssize_t n = ::readlink(task.namePath.c_str(), target, sizeof target - 1);
    const std::size_t slash = task.path.rfind('/');
    if (n > 0 && task.path.compare(slash + 1, std::string::npos, target, static_cast<std::size_t>(n)) == 0)
        ::unlink(task.namePath.c_str());
    ::unlink(task.path.c_str());
}

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

bool queueFull(const Task& task, std::size_t messages, std::size_t bytes)
{
    return task.queuedMessages.load() >= messages || task.queuedBytes.load() >= bytes;
}

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

/* Runs on the task's thread. The dispatcher owns the raw message: the
 * callback only marks it released, so it is freed exactly once. */
void deliver(Task& task, RawPtr raw, bool fromSocket = false)
{
    const unsigned char* b = raw->bytes();
    unsigned int primitive = (static_cast<unsigned int>(b[0]) << 24) |
                             (static_cast<unsigned int>(b[1]) << 16) |
                             (static_cast<unsigned int>(b[2]) << 8) | b[3];
    const std::size_t length = raw->length;
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
void postRaw(Task& task, RawPtr raw, bool fromSocket = false)
{
    asio::post(task.io, [t = &task, r = std::move(raw), fromSocket]() mutable {
        deliver(*t, std::move(r), fromSocket);
    });
}

void readerPost(Reader& r, std::function<void()> f)
{
    asio::post(r.io, std::move(f));
    uint64_t one = 1;
    ssize_t n = ::write(r.wake, &one, sizeof one);
    (void)n;  /* the counter cannot overflow in practice */
}

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
            PLT_LOG_ERROR("datagram for %s from %s %s, dropped", task.name.c_str(),
                          peerName(from, fromLen).c_str(),
                          len < 4 ? "shorter than 4 bytes" : "longer than 65536 bytes");
            continue;
        }
        RawPtr raw = makeRaw(r.buf.data(), len);
        CManMessage check;
        if (!raw || check.Assign(plt::rawHandle(raw.get())) != MAN_OK) {
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

TaskPtr taskByIndex(int taskNo)
{
    std::lock_guard<std::mutex> lock(g_mu);
    if (taskNo < 0 || taskNo >= MAN_MAX_TASKS)
        return nullptr;
    return g_byIndex[taskNo];
}

bool hasBytes(const CManMessage& msg)
{
    return Platform::data(msg) != nullptr && Platform::length(msg) >= 4;
}

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

}  // namespace

/* ---- tasks ---- */

namespace {

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

/* ---- sending and timers ---- */

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
    do {
        n = ::sendto(sock->fd, Platform::data(msg), Platform::length(msg), flags, reinterpret_cast<sockaddr*>(&sa),
                     sizeof sa);
    } while (n < 0 && errno == EINTR);
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
        PLT_LOG_ERROR_IN("SendIpc", "send to %s failed: %s", destination, std::strerror(errno));
        return MAN_E_IO;
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

int PLT_SendLocal(CManMessage& msg, int taskNo)
{
    if (!hasBytes(msg))
        return MAN_E_STATE;
    TaskPtr task = taskByIndex(taskNo);
    if (!task)
        return MAN_E_NOTASK;
    RawPtr raw = makeRaw(Platform::data(msg), Platform::length(msg));
    if (!raw)
        return MAN_E_NOMEM;
    try {
        postRaw(*task, std::move(raw));
    } catch (const std::bad_alloc&) {
        return MAN_E_NOMEM;
    }
    return MAN_OK;
}

int PLT_TimerLocal(CManMessage& msg, int taskNo, unsigned int time)
{
    if (!hasBytes(msg))
        return MAN_E_STATE;
    TaskPtr task = taskByIndex(taskNo);
    if (!task)
        return MAN_E_NOTASK;
    RawPtr raw = makeRaw(Platform::data(msg), Platform::length(msg));
    if (!raw)
        return MAN_E_NOMEM;
    auto due = std::chrono::steady_clock::now() +
               std::chrono::microseconds(static_cast<uint64_t>(time) * g_timerUnitUs.load());
    /* The timer lives in its handler; a pending one is destroyed with the
     * task's io_context at shutdown, which frees its message. */
    try {
        asio::post(task->io, [t = task.get(), due, r = std::move(raw)]() mutable {
            auto timer = std::make_shared<asio::steady_timer>(t->io, due);
            timer->async_wait([t, timer, r = std::move(r)](const boost::system::error_code& ec) mutable {
                if (!ec)
                    deliver(*t, std::move(r));
            });
        });
    } catch (const std::bad_alloc&) {
        return MAN_E_NOMEM;
    }
    return MAN_OK;
}

/* ---- runtime control ---- */

int PLT_SetIpcDir(const std::string& dir)
{
    std::lock_guard<std::mutex> lock(g_mu);
    return setIpcDirLocked(dir);
}

std::string PLT_IpcDir()
{
    std::lock_guard<std::mutex> lock(g_mu);
    return g_ipcDir.empty() ? PLT_DefaultIpcDir() : g_ipcDir;
}

std::string PLT_DefaultIpcDir()
{
    const char* xdg = std::getenv("XDG_RUNTIME_DIR");
    if (xdg != nullptr && xdg[0] != '\0')
        return std::string(xdg) + "/kivo-ipc";
    return "/tmp/kivo-ipc-" + std::to_string(static_cast<unsigned long>(::geteuid()));
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

void PLT_SetTimerUnitUs(unsigned int us)
{
    g_timerUnitUs.store(us);
}

void PLT_Drain()
{
    if (t_task != nullptr) {
        PLT_LOG_ERROR("PLT_Drain called from task %s, ignored", t_task->name.c_str());
        return;
    }
    std::lock_guard<std::mutex> drainLock(g_drainMu);
    for (;;) {
        unsigned long long handled = g_handled.load();
        std::vector<TaskPtr> tasks;
        Reader* reader;
        {
            std::lock_guard<std::mutex> lock(g_mu);
            tasks = g_tasks;
            reader = g_reader.get();
        }
        if (reader == nullptr)
            return;
        /* Datagrams already in the sockets are taken and posted first. */
        std::promise<void> received;
        readerPost(*reader, [reader, &tasks, &received] {
            for (const TaskPtr& t : tasks)
                receiveFrom(*reader, *t, BURST);
            received.set_value();
        });
        received.get_future().wait();
        for (const TaskPtr& t : tasks) {
            std::promise<void> done;
            asio::post(t->io, [&done] { done.set_value(); });
            done.get_future().wait();
        }
        if (g_handled.load() == handled)
            return;
    }
}

void PLT_Shutdown()
{
    if (t_task != nullptr) {
        PLT_LOG_ERROR("PLT_Shutdown called from task %s, ignored", t_task->name.c_str());
        return;
    }
    std::lock_guard<std::mutex> drainLock(g_drainMu);
    std::vector<TaskPtr> tasks;
    std::unique_ptr<Reader> reader;
    {
        std::lock_guard<std::mutex> lock(g_mu);
        tasks.swap(g_tasks);
        reader = std::move(g_reader);
        for (auto& t : g_byIndex)
            t.reset();
        std::memset(TaskIdTbl, 0, sizeof TaskIdTbl);
        g_nextFreeId = 0x10000;
    }
    {
        std::lock_guard<std::mutex> lock(g_dropMu);
        g_dropped.clear();
        g_anyDropped.store(false);
    }
    if (reader) {
        reader->stop.store(true);
        readerPost(*reader, [] {});
        reader->thread.join();
    }
    for (const TaskPtr& t : tasks) {
        t->guard.reset();
        t->io.stop();
        if (t->thread.joinable())
            t->thread.join();
        removeSocketFiles(*t);
    }
    /* Destroying the io_contexts frees the messages and timers still queued. */
    tasks.clear();
    reader.reset();
    std::lock_guard<std::mutex> lock(g_termMu);
    g_consoles.clear();
    g_current.clear();
}

/* ---- log and terminal output ---- */

/* The firmware's char* forms and our const forms write the same records. */
#define PLT_LOG_BODY(level)                          \
    va_list ap;                                      \
    va_start(ap, format);                            \
    std::string text = vformat(format, ap);          \
    va_end(ap);                                      \
    emitLog(level, file, function, line, std::move(text))

void LOG_ExpInfo(char* file, char* function, int line, const char* format, ...)
{
    PLT_LOG_BODY(PLT_LOG_INFO);
}

void LOG_ExpError(char* file, char* function, int line, const char* format, ...)
{
    PLT_LOG_BODY(PLT_LOG_ERROR);
}

void LOG_ExpInfo(const char* file, const char* function, int line, const char* format, ...)
{
    PLT_LOG_BODY(PLT_LOG_INFO);
}

void LOG_ExpError(const char* file, const char* function, int line, const char* format, ...)
{
    PLT_LOG_BODY(PLT_LOG_ERROR);
}

void UI_ExpWritef(const char* format, ...)
{
    va_list ap;
    va_start(ap, format);
    std::string text = vformat(format, ap);
    va_end(ap);
    emitTerminal(text);
}

void PLT_SetLogSink(PLT_LogSink sink)
{
    std::lock_guard<std::mutex> lock(g_sinkMu);
    g_logSink = sink;
}

void PLT_SetTerminalSink(PLT_TerminalSink sink)
{
    std::lock_guard<std::mutex> lock(g_sinkMu);
    g_termSink = sink;
}

/* ---- debug terminal ---- */

int DTM_ExpRegister(const char* name, const char* title, DTM_Interpreter interpreter)
{
    if (int fault = plt::faultFor(plt::Fault::Register))
        return fault;
    if (name == nullptr || name[0] == '\0' || std::strpbrk(name, " \t\r\n") != nullptr ||
        interpreter == nullptr)
        return MAN_E_FORMAT;
    std::lock_guard<std::mutex> lock(g_termMu);
    for (const Console& c : g_consoles)
        if (c.name == name)
            return MAN_E_STATE;
    g_consoles.push_back(Console{name, title ? title : "", interpreter});
    return MAN_OK;
}

void DTM_ExpReturn()
{
    std::lock_guard<std::mutex> lock(g_termMu);
    g_current.clear();
}

int PLT_TerminalLine(const char* line)
{
    if (line == nullptr)
        return 0;
    DTM_Interpreter interpreter = nullptr;
    std::string word;
    {
        std::lock_guard<std::mutex> lock(g_termMu);
        if (!g_current.empty()) {
            for (const Console& c : g_consoles)
                if (c.name == g_current)
                    interpreter = c.interpreter;
        } else {
            word = line;
            std::size_t b = word.find_first_not_of(" \t\r\n");
            std::size_t e = word.find_last_not_of(" \t\r\n");
            word = b == std::string::npos ? std::string() : word.substr(b, e - b + 1);
            if (word.empty())
                return 0;
            for (const Console& c : g_consoles)
                if (c.name == word) {
                    g_current = word;
                    return 0;
                }
        }
    }
    /* Called without the lock: the interpreter may call DTM_ExpReturn. */
    if (interpreter != nullptr)
        return interpreter(line);
    if (!word.empty())
        UI_ExpWritef("unknown console: %s\n", word.c_str());
    return 0;
}

std::string PLT_CurrentConsole()
{
    std::lock_guard<std::mutex> lock(g_termMu);
    return g_current;
}
