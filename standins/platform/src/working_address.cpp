/*
 * Addressing of the working platform: task names and IPC addresses, the
 * IPC directory, and the sockets of task instances.
 *
 * Each task binds a socket path of its own instance,
 * "<name>@Local.<12 hex digits>", and points the name "<name>@Local" at it
 * with a symbolic link. Senders reach the live task through the name; replies
 * go to the instance path the datagram came from, which dies with its
 * process, so a reply meant for an earlier process never reaches a later one
 * that took the same name.
 */
#include <sys/socket.h>
#include <sys/stat.h>
#include <dirent.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>
#include <string>

#include "working.h"

namespace plt::work {

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
    /* Longest socket path: the directory as the kernel sees it, "/" and the
     * longest instance file name must fit sun_path. What is given is only
     * measured once resolved: "/tmp/a/../b/./ipc" may be short. */
    constexpr std::size_t maxDir = sizeof(sockaddr_un{}.sun_path) - 1 - MAX_FILE - 1;
    if (dir.empty() || dir.size() >= PATH_MAX) {
        PLT_LOG_ERROR("IPC directory of %lu bytes refused: no path", static_cast<unsigned long>(dir.size()));
        return MAN_E_SIZE;
    }
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
    if (canonical.size() > maxDir) {
        PLT_LOG_ERROR("IPC directory %s refused: it is %s, longer than the %lu bytes a socket address leaves for it",
                      dir.c_str(), canonical.c_str(), static_cast<unsigned long>(maxDir));
        return MAN_E_SIZE;
    }
    g_ipcDir = canonical;
    g_ipcDirDev = st.st_dev;
    g_ipcDirIno = st.st_ino;
    return MAN_OK;
}

namespace {

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

}  // namespace

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

}  // namespace plt::work

using namespace plt::work;

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
