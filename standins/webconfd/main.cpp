/*
 * webconfd: the stand-in of the firmware's configuration daemon. It owns
 * the task "webconfd" (IPC address webconfd@Local), answers each request
 * it receives from the SQLite phonebook, and runs until SIGINT or SIGTERM.
 * SIGUSR1 sends a config-changed notice to every known client.
 *
 * Threads: requests are handled on the task's thread; the main thread only
 * waits for signals. Both post their replies to the outbox, which sends at
 * once what the receiver has room for; its own thread retries the rest.
 * Another thread writes the log buffer out to standard error.
 */
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <string>

#include "import.h"
#include "outbox.h"
#include "platform/capture.h"
#include "platform/log.h"
#include "platform/manmsg.h"
#include "platform/output.h"
#include "platform/mantask.h"
#include "platform/runtime.h"
#include "platform/standin.h"
#include "server.h"
#include "store.h"

namespace {

const char kFile[] = "webconfd";
const char kTaskName[] = "webconfd";
const char kAddress[] = "webconfd@Local";

const char kUsage[] =
    "usage: webconfd [options]\n"
    "\n"
    "Answers the kivo module's phonebook requests at webconfd@Local from a SQLite\n"
    "phonebook. A database that does not exist yet is created with a sample\n"
    "phonebook. Runs until SIGINT or SIGTERM; SIGUSR1 sends a config-changed\n"
    "notice to every client seen in the last --client-ttl seconds.\n"
    "\n"
    "options:\n"
    "  --db PATH              the database (default: $XDG_DATA_HOME/kivo/webconfd.db,\n"
    "                         or ~/.local/share/kivo/webconfd.db)\n"
    "  --ipc-dir DIR          runtime directory of the IPC sockets (default:\n"
    "                         $XDG_RUNTIME_DIR/kivo-ipc or /tmp/kivo-ipc-<uid>)\n"
    "  --import FILE          add the records of FILE (JSON lines, UTF-8) to the\n"
    "                         database and exit; a database created this way holds\n"
    "                         only what was imported\n"
    "  --reply-records N      records per reply, 1 to 100 (default 20)\n"
    "  --client-ttl SECONDS   how long a client stays known (default 600)\n"
    "  --send-patience-ms N   give up on a client that takes no reply for N ms\n"
    "                         (1 to 60000, default 2000)\n"
    "  -v, --verbose          log every request\n"
    "  --capture FILE         write every datagram sent and received to FILE (pcap;\n"
    "                         it holds phonebook data; docs/capture.md)\n"
    "  --capture-limit N      stop writing the capture at N bytes (default 67108864)\n"
    "  -h, --help             this text\n"
    "\n"
    "faults (off by default):\n"
    "  --fault-delay-ms N     wait N ms (up to 60000) before sending each reply\n"
    "  --fault-drop PERCENT   do not send PERCENT (0 to 100) of the replies\n"
    "  --fault-seed N         seed of the choice of dropped replies (default 1)\n"
    "  --fault-not-json       send only the first half of each reply's JSON\n"
    "  --fault-invalid-type   send replies with type 99\n"
    "  --fault-duplicate      send every reply twice\n"
    "\n"
    "docs/webconfd.md describes the search meanings and the import format.\n";

/* Log records waiting for standard error, at most; and how long the end
 * waits for them to be written. */
constexpr std::size_t kLogBufferBytes = 256 * 1024;

webconfd::Server* g_server;

/* Set when the daemon stops, so that a delayed reply does not hold up the
 * shutdown. */
std::mutex g_stopLock;
std::condition_variable g_stopChanged;
bool g_stopping;

/* Waits the fault delay; false when the daemon stops meanwhile. */
bool delay(uint32_t ms)
{
    std::unique_lock<std::mutex> guard(g_stopLock);
    return !g_stopChanged.wait_for(guard, std::chrono::milliseconds(ms), [] { return g_stopping; });
}

bool parseNumber(const char* text, unsigned long max, unsigned long* out)
{
    if (text == nullptr || *text < '0' || *text > '9')
        return false;
    errno = 0;
    char* end = nullptr;
    const unsigned long value = std::strtoul(text, &end, 10);
    if (errno != 0 || *end != '\0' || value > max)
        return false;
    *out = value;
    return true;
}

/* $XDG_DATA_HOME/kivo/webconfd.db, or ~/.local/share/kivo/webconfd.db, or
 * ./webconfd.db without a home. */
std::string defaultDatabase()
{
    const char* data = std::getenv("XDG_DATA_HOME");
    if (data != nullptr && data[0] == '/')
        return std::string(data) + "/kivo/webconfd.db";
    const char* home = std::getenv("HOME");
    if (home != nullptr && home[0] != '\0')
        return std::string(home) + "/.local/share/kivo/webconfd.db";
    return "webconfd.db";
}

/* Creates the directories above `path`, as mkdir -p does. */
bool makeParents(const std::string& path)
{
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        const std::string dir = path.substr(0, slash);
        if (::mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST)
            return false;
    }
    return true;
}

/* Whether the destination's queue has room, asked without sending: a
 * socket connected to it, never sent on, is writable when it has. A
 * destination that cannot be asked is tried: the send tells. */
bool hasRoom(const std::string& destination)
{
    const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return true;
    sockaddr_un sa{};
    sa.sun_family = AF_UNIX;
    const std::string path = PLT_IpcDir() + "/" + destination;
    bool room = true;
    if (path.size() < sizeof sa.sun_path) {
        std::memcpy(sa.sun_path, path.c_str(), path.size() + 1);
        if (::connect(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa) == 0) {
            pollfd p{fd, POLLOUT, 0};
            room = ::poll(&p, 1, 0) == 1 && (p.revents & POLLOUT) != 0;
        }
    }
    ::close(fd);
    return room;
}

webconfd::SendResult sendNow(const std::string& destination, const std::string& text, bool retry)
{
    /* A retry asks first, so that a full queue costs no send (and no
     * capture record) every few milliseconds. */
    if (retry && !hasRoom(destination))
        return webconfd::SendResult::Full;
    CManMessage msg;
    if (msg.Create(webconfd::kReplyPrimitive, 0, static_cast<int>(text.size() + 5)) != MAN_OK ||
        Platform::addString(msg, text) != MAN_OK) {
        LOG_ExpError(kFile, "send", __LINE__, "reply of %lu bytes to %s does not fit a message",
                     static_cast<unsigned long>(text.size()), destination.c_str());
        return webconfd::SendResult::Refused;
    }
    const int rc = PLT_SendIpc(msg, kAddress, destination.c_str());
    msg.Delete();
    switch (rc) {
    case MAN_OK:
        return webconfd::SendResult::Sent;
    case MAN_E_FULL:
        return webconfd::SendResult::Full;
    case MAN_E_NOTASK:
        return webconfd::SendResult::Gone;   // logged by the platform
    default:
        return webconfd::SendResult::Refused;   // logged by the platform
    }
}

webconfd::Outbox* g_outbox;

void send(const std::vector<webconfd::Outgoing>& messages)
{
    for (const webconfd::Outgoing& m : messages) {
        if (m.delayMs > 0 && !delay(m.delayMs))
            return;
        g_outbox->post(m);
    }
}

void taskCallback(int event, unsigned int primitive, void* raw)
{
    if (event != MAN_EVENT_MESSAGE)
        return;
    {
        CManMessage msg;
        const std::string source = PLT_MessageSource(raw);
        if (msg.Assign(raw) != MAN_OK) {
            LOG_ExpError(kFile, "taskCallback", __LINE__, "unreadable message dropped");
        } else {
            /* Searches come with their client's primitive, changes with
             * 0x00830001: any message whose first field is text is a request. */
            const std::string text = msg.getString();
            if (Platform::readFailed(msg))
                LOG_ExpError(kFile, "taskCallback", __LINE__, "message 0x%08lx from %s without a text field dropped",
                             static_cast<unsigned long>(primitive), source.empty() ? "?" : source.c_str());
            else if (source.empty())
                LOG_ExpError(kFile, "taskCallback", __LINE__, "request without return address dropped");
            else
                send(g_server->handle(source, text));
        }
    }
    MAN_ExpPFree(raw);
}

/* Exit code of an import; *failed when the database failed and nothing
 * was kept. */
int runImport(webconfd::Store& store, const std::string& file, bool* failed = nullptr)
{
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "webconfd: cannot read %s: %s\n", file.c_str(), std::strerror(errno));
        return 1;
    }
    const webconfd::ImportReport r = webconfd::importRecords(store, in, file);
    if (failed != nullptr)
        *failed = r.failed;
    if (r.failed) {
        std::fprintf(stderr, "webconfd: import of %s failed, nothing imported\n", file.c_str());
        return 1;
    }
    std::fprintf(stderr, "webconfd: imported %d contacts, %d events, %d folders; %d lines refused\n", r.contacts,
                 r.events, r.folders, r.rejected);
    return r.rejected == 0 ? 0 : 1;
}

/* Removes the databases that earlier first starts, killed meanwhile, were
 * building beside `path`. */
void removeAbandoned(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : path.substr(0, slash);
    const std::string prefix = (slash == std::string::npos ? path : path.substr(slash + 1)) + ".new.";
    DIR* d = ::opendir(dir.c_str());
    if (d == nullptr)
        return;
    while (dirent* e = ::readdir(d)) {
        const std::string name = e->d_name;
        if (name.compare(0, prefix.size(), prefix) != 0)
            continue;
        const long pid = std::strtol(name.c_str() + prefix.size(), nullptr, 10);
        if (pid > 0 && ::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH)
            ::unlink((dir + "/" + name).c_str());
    }
    ::closedir(d);
}

/* Makes a new database at `path` in one step: it is built beside it, and
 * moved into place once its tables and records are committed, so that no
 * interrupted first start leaves a file that looks like an empty phonebook.
 * Returns the exit code when the program is done (an import, a failure),
 * -1 to go on serving. */
int createDatabase(const std::string& path, const std::string& importFile)
{
    removeAbandoned(path);
    const std::string aside = path + ".new." + std::to_string(static_cast<long>(::getpid()));
    auto discard = [&aside] {
        ::unlink(aside.c_str());
        ::unlink((aside + "-journal").c_str());
    };
    discard();
    int code = -1;
    {
        webconfd::Store store;
        std::string error;
        if (!store.open(aside, &error)) {
            std::fprintf(stderr, "webconfd: cannot create %s: %s\n", path.c_str(), error.c_str());
            discard();
            return 1;
        }
        if (!importFile.empty()) {
            bool failed = true;
            code = runImport(store, importFile, &failed);
            if (failed) {
                discard();
                return code;
            }
        } else if (webconfd::importSample(store).failed) {
            std::fprintf(stderr, "webconfd: cannot fill %s with the sample phonebook\n", path.c_str());
            discard();
            return 1;
        }
    }
    /* link() does not replace a database another webconfd made meanwhile. */
    if (::link(aside.c_str(), path.c_str()) != 0 && errno != EEXIST) {
        std::fprintf(stderr, "webconfd: cannot create %s: %s\n", path.c_str(), std::strerror(errno));
        discard();
        return 1;
    }
    discard();
    const std::size_t slash = path.rfind('/');
    const int dir = ::open(slash == std::string::npos ? "." : path.substr(0, slash + 1).c_str(), O_RDONLY | O_CLOEXEC);
    if (dir >= 0) {
        ::fsync(dir);   // the new name survives a power cut
        ::close(dir);
    }
    if (importFile.empty())
        LOG_ExpInfo(kFile, "main", __LINE__, "created %s with the sample phonebook", path.c_str());
    return code;
}

int usageError(const std::string& message)
{
    std::fputs(kUsage, stderr);
    std::fprintf(stderr, "webconfd: %s\n", message.c_str());
    return 2;
}

}  // namespace

int main(int argc, char** argv)
{
    std::string dbPath = defaultDatabase();
    std::string ipcDir = PLT_DefaultIpcDir();
    std::string importFile;
    webconfd::ServerOptions options;
    std::string captureFile;
    unsigned long captureLimit = 64UL << 20;
    webconfd::OutboxLimits outboxLimits;

    for (int i = 1; i < argc; i++) {
        const std::string arg = argv[i];
        const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
        unsigned long n = 0;
        bool takesValue = true;
        if (arg == "--help" || arg == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (arg == "--db" && value) {
            dbPath = value;
        } else if (arg == "--ipc-dir" && value) {
            ipcDir = value;
        } else if (arg == "--import" && value) {
            importFile = value;
        } else if (arg == "--capture" && value) {
            captureFile = value;
        } else if (arg == "--capture-limit" && parseNumber(value, 0xFFFFFFFFUL, &n)) {
            captureLimit = n;
        } else if (arg == "--reply-records" && parseNumber(value, 100, &n) && n > 0) {
            options.recordsPerReply = static_cast<int32_t>(n);
        } else if (arg == "--client-ttl" && parseNumber(value, 86400L * 365, &n)) {
            options.clientTtlSeconds = static_cast<int64_t>(n);
        } else if (arg == "--send-patience-ms" && parseNumber(value, 60000, &n) && n > 0) {
            outboxLimits.patienceMs = static_cast<int64_t>(n);
        } else if (arg == "--fault-delay-ms" && parseNumber(value, 60000, &n)) {
            options.faults.delayMs = static_cast<uint32_t>(n);
        } else if (arg == "--fault-drop" && parseNumber(value, 100, &n)) {
            options.faults.dropPercent = static_cast<uint32_t>(n);
        } else if (arg == "--fault-seed" && parseNumber(value, 0xFFFFFFFFUL, &n)) {
            options.faults.seed = static_cast<uint32_t>(n);
        } else {
            takesValue = false;
            if (arg == "--fault-not-json")
                options.faults.notJson = true;
            else if (arg == "--fault-invalid-type")
                options.faults.invalidType = true;
            else if (arg == "--fault-duplicate")
                options.faults.duplicate = true;
            else if (arg == "--verbose" || arg == "-v")
                options.verbose = true;
            else
                return usageError("bad argument: " + arg + (value ? std::string(" ") + value : std::string()));
        }
        if (takesValue)
            i++;
    }

    /* Over a file-size limit a write fails (and is reported) instead of
     * killing the daemon. */
    ::signal(SIGXFSZ, SIG_IGN);
    /* Likewise a write to a standard error whose reader has gone: the log
     * writer drops what it cannot write. */
    ::signal(SIGPIPE, SIG_IGN);
    const bool existed = ::access(dbPath.c_str(), F_OK) == 0;
    if (!existed && !makeParents(dbPath)) {
        std::fprintf(stderr, "webconfd: cannot create the directory of %s: %s\n", dbPath.c_str(),
                     std::strerror(errno));
        return 1;
    }
    if (!existed) {
        /* A new database holds the sample phonebook, or what is imported. */
        const int code = createDatabase(dbPath, importFile);
        if (code >= 0)
            return code;
    }
    webconfd::Store store;
    std::string error;
    if (!store.open(dbPath, &error, true)) {
        std::fprintf(stderr, "webconfd: cannot use %s: %s\n", dbPath.c_str(), error.c_str());
        return 1;
    }
    if (!importFile.empty() && existed)
        return runImport(store, importFile);

    /* Blocked before any thread starts, so every platform thread inherits
     * the mask and the signals reach sigwait below. */
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    /* From here on no log record waits for standard error to take it. */
    PLT_StartBoundedOutput(kLogBufferBytes);
    webconfd::Server server(store, options);
    g_server = &server;
    /* A client that does not read its replies must not hold up the others:
     * no send waits. A reply its full queue cannot take now waits in the
     * outbox, within its bounds. */
    PLT_SetSendBlocking(false);
    webconfd::Outbox outbox(sendNow, outboxLimits, [&server](const std::string& gone) { server.forget(gone); });
    g_outbox = &outbox;
    outbox.start();
    if (PLT_SetIpcDir(ipcDir) != MAN_OK) {
        std::fprintf(stderr, "webconfd: cannot use the IPC directory %s\n", ipcDir.c_str());
        return 2;
    }
    if (!captureFile.empty() && PLT_CaptureStart(captureFile, captureLimit) != MAN_OK) {
        std::fprintf(stderr, "webconfd: cannot capture to %s\n", captureFile.c_str());
        return 2;
    }
    /* Counted before the task serves: from then on only the task uses the
     * store. */
    const long long contacts = static_cast<long long>(store.contactCount());
    int taskId = 0;
    if (MAN_ExpTCreate(kTaskName, &taskId, 0, taskCallback) != MAN_OK) {
        std::fprintf(stderr, "webconfd: cannot serve at %s/%s (is another webconfd running there?)\n",
                     ipcDir.c_str(), kAddress);
        PLT_Shutdown();
        PLT_CaptureStop();
        return 1;
    }
    LOG_ExpInfo(kFile, "main", __LINE__, "serving %s (%lld contacts) at %s/%s", dbPath.c_str(),
                contacts, ipcDir.c_str(), kAddress);

    for (;;) {
        int sig = 0;
        if (sigwait(&signals, &sig) != 0)
            continue;
        if (sig == SIGUSR1) {
            LOG_ExpInfo(kFile, "main", __LINE__, "SIGUSR1: config-changed notice to the known clients");
            send(server.announceChange());
            continue;
        }
        break;
    }
    {
        std::lock_guard<std::mutex> guard(g_stopLock);
        g_stopping = true;
    }
    g_stopChanged.notify_all();
    outbox.stop();
    PLT_Shutdown();
    PLT_CaptureStop();
    g_server = nullptr;
    LOG_ExpInfo(kFile, "main", __LINE__, "stopped");
    PLT_FinishOutput();
    return 0;
}
