/*
 * kivo_load: the end-to-end load driver. It runs the module in this
 * process on the working platform, as the host does, against webconfd over
 * Unix datagrams, and measures name searches of 10 contacts at concurrency
 * 1, 8 and 64: searches per second, latency p50 and p99. Each client is a
 * thread with one search open at a time, waiting on its query client's
 * requestFinished().
 *
 * The floor: the same exchange as raw datagrams between two processes (a
 * request, then the daemon's replies, of the very sizes webconfd sends),
 * with kivo_echo as the peer and the same client threads, plus the JSON
 * work both sides cannot avoid, each timed alone here: building and writing
 * the request and parsing the replies (module), parsing the request and
 * building and writing the replies (daemon). webconfd gets a fresh
 * database of its own in a temporary directory; everything runs on this
 * machine and ends within its time limits.
 *
 *   kivo_load [--webconfd PATH] [--echo PATH] [--seconds S] [--raw-only]
 *             [--daemon-wrapper "COMMAND ARGS"]
 *
 * --daemon-wrapper runs the daemon under another program, e.g.
 * "valgrind --tool=callgrind --callgrind-out-file=/tmp/webconfd.out"; the
 * count of requests it answered is printed at the end.
 */
#include <fcntl.h>
#include <malloc.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <boost/make_shared.hpp>
#include <json/json.h>

#include "kivo.h"
#include "phonebook/latin1.h"
#include "phonebook/request.h"
#include "phonebook/standin.h"
#include "platform/standin.h"
#include "platform/runtime.h"

extern char** environ;

using namespace ZEMBRA::Phonebook;
using Clock = std::chrono::steady_clock;

namespace {

/* The searched name and how many contacts carry it. */
const char kName[] = "Lastload";
constexpr int kMatches = 10;
/* Other contacts in the phonebook, so the search does not run on an empty one. */
constexpr int kOthers = 990;
constexpr unsigned int kReplyPrimitive = 0x00830002;

/* Requests sent to webconfd, warm-ups included. */
std::atomic<long> daemonRequests{0};

double seconds(Clock::duration d)
{
    return std::chrono::duration<double>(d).count();
}

double percentile(std::vector<double> v, double p)
{
    if (v.empty())
        return 0;
    std::sort(v.begin(), v.end());
    const std::size_t at = static_cast<std::size_t>(p * static_cast<double>(v.size() - 1) + 0.5);
    return v[std::min(at, v.size() - 1)];
}

/* ---- processes and files --------------------------------------------------- */

std::string self()
{
    char path[4096];
    const ssize_t n = ::readlink("/proc/self/exe", path, sizeof path - 1);
    if (n <= 0)
        return ".";
    path[n] = '\0';
    std::string dir = path;
    return dir.substr(0, dir.rfind('/'));
}

pid_t spawn(const std::vector<std::string>& argv, const std::string& logFile)
{
    std::vector<char*> args;
    for (const std::string& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, logFile.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, logFile.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    pid_t pid = -1;
    if (posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ) != 0)
        pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

/* Exit code of the process, or -1; it is killed when it outlives
 * `waitMs`. */
int finish(pid_t pid, int waitMs, bool terminate)
{
    if (pid <= 0)
        return -1;
    if (terminate)
        ::kill(pid, SIGTERM);
    int status = 0;
    for (int waited = 0; waited <= waitMs; waited += 10) {
        if (::waitpid(pid, &status, WNOHANG) == pid)
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ::kill(pid, SIGKILL);
    ::waitpid(pid, &status, 0);
    return -1;
}

bool waitForFile(const std::string& path, int waitMs)
{
    struct stat st;
    for (int waited = 0; waited <= waitMs; waited += 10) {
        if (::stat(path.c_str(), &st) == 0)
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

long statusKb(const char* field)
{
    std::ifstream in("/proc/self/status");
    std::string line;
    const std::size_t n = std::strlen(field);
    while (std::getline(in, line))
        if (line.compare(0, n, field) == 0 && line.size() > n && line[n] == ':')
            return std::strtol(line.c_str() + n + 1, nullptr, 10);
    return -1;
}

/* Starts VmHWM afresh at the current resident size. */
bool resetPeakRss()
{
    std::ofstream out("/proc/self/clear_refs");
    out << "5";
    out.flush();
    return static_cast<bool>(out);
}

long long heapInUse()
{
    const struct mallinfo2 m = mallinfo2();
    return static_cast<long long>(m.uordblks + m.hblkhd);
}

/* ---- raw datagrams ---------------------------------------------------------- */

class Socket {
public:
    explicit Socket(const std::string& path) : path_(path)
    {
        fd_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un addr = address(path);
        ::unlink(path.c_str());
        if (fd_ >= 0 && ::bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
            ::close(fd_);
            fd_ = -1;
        }
        if (fd_ >= 0) {
            const timeval timeout{5, 0};
            ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
        }
    }
    ~Socket()
    {
        if (fd_ >= 0) {
            ::close(fd_);
            ::unlink(path_.c_str());
        }
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    bool ok() const { return fd_ >= 0; }

    bool send(const std::string& to, const std::string& bytes)
    {
        sockaddr_un addr = address(to);
        return ::sendto(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&addr), sizeof addr) ==
               static_cast<ssize_t>(bytes.size());
    }

    /* One datagram; empty after the receive time-out. */
    std::string receive()
    {
        buffer_.resize(65537);
        const ssize_t n = ::recv(fd_, &buffer_[0], buffer_.size(), 0);
        return n > 0 ? buffer_.substr(0, static_cast<std::size_t>(n)) : std::string();
    }

    /* One datagram's length; 0 after the time-out. */
    std::size_t receiveLength()
    {
        buffer_.resize(65537);
        const ssize_t n = ::recv(fd_, &buffer_[0], buffer_.size(), 0);
        return n > 0 ? static_cast<std::size_t>(n) : 0;
    }

private:
    static sockaddr_un address(const std::string& path)
    {
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        std::strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
        return addr;
    }

    std::string path_;
    int fd_ = -1;
    std::string buffer_;
};

/* A message of the platform with one string field (docs/platform.md). */
std::string message(unsigned int primitive, const std::string& text)
{
    std::string m;
    for (int shift = 24; shift >= 0; shift -= 8)
        m += static_cast<char>((primitive >> shift) & 0xFF);
    m += '\x02';
    const uint32_t n = static_cast<uint32_t>(text.size());
    for (int shift = 24; shift >= 0; shift -= 8)
        m += static_cast<char>((n >> shift) & 0xFF);
    return m + text;
}

std::string messageText(const std::string& m)
{
    return m.size() >= 9 && m[4] == '\x02' ? m.substr(9) : std::string();
}

/* ---- the phonebook and the search ----------------------------------------- */

QueryParameters searchParameters()
{
    QueryParameters p;
    p.mode = NameAlpha;
    p.value = Json::Value(kName);
    p.offset = 0;
    p.size = 100;
    return p;
}

/* The request text the module sends for the search. */
std::string requestText(unsigned int queryId)
{
    const QueryParameters p = searchParameters();
    Request request(queryId, p.userId);
    ContactParams params;
    params.type = static_cast<int32_t>(p.mode);
    params.data = p.value;
    request.params = params;
    request.offset = p.offset;
    request.size = p.size;
    return request.toJson().toStyledString();
}

void writePhonebook(const std::string& file)
{
    std::ofstream out(file);
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    for (int i = 0; i < kMatches + kOthers; i++) {
        const std::string n = std::to_string(i);
        Json::Value c;
        c["uid"] = "load-" + n;
        c["lastName"] = i < kMatches ? std::string(kName) + " " + n : "M\xc3\xbcller-Schmidt " + n;
        c["firstName"] = i % 3 == 0 ? "J\xc3\xbcrgen" : "Annegret";
        c["company"] = "Vornsyn Ger\xc3\xa4tebau GmbH";
        c["extraText1"] = "Stuttgart";
        Json::Value work;
        work["text1"] = "gesch\xc3\xa4" "ftlich";
        work["number"] = "+49 711 123" + n;
        work["value1"] = 2;
        Json::Value mobile;
        mobile["text1"] = "mobil";
        mobile["number"] = "0170 555" + n;
        mobile["value1"] = 3;
        c["numbers"].append(work);
        c["numbers"].append(mobile);
        Json::Value line;
        line["contact"] = c;
        out << Json::writeString(writer, line) << "\n";
    }
}

/* ---- the floors of the JSON work ------------------------------------------ */

/* Median seconds of one call, over batches timed by hand. */
double timeOf(const std::function<void()>& work)
{
    std::vector<double> perCall;
    const int batch = 20;
    const Clock::time_point until = Clock::now() + std::chrono::milliseconds(300);
    while (Clock::now() < until || perCall.size() < 5) {
        const Clock::time_point t0 = Clock::now();
        for (int i = 0; i < batch; i++)
            work();
        perCall.push_back(seconds(Clock::now() - t0) / batch);
    }
    return percentile(perCall, 0.5);
}

struct Floors {
    double moduleRequest = 0;   // build and write the request
    double moduleReplies = 0;   // parse the replies
    double daemonRequest = 0;   // parse the request
    double daemonReplies = 0;   // build and write the replies
    double total() const { return moduleRequest + moduleReplies + daemonRequest + daemonReplies; }
};

Floors measureFloors(const std::string& request, const std::vector<std::string>& replies)
{
    Floors f;
    f.moduleRequest = timeOf([] {
        Json::Value params(Json::objectValue);
        params["kind"] = "contact";
        params["type"] = 2;
        params["data"] = kName;
        Json::Value r(Json::objectValue);
        r["queryId"] = 12345u;
        r["userId"] = "";
        r["params"] = std::move(params);
        r["offset"] = 0;
        r["size"] = 100;
        std::string text = r.toStyledString();
        asm volatile("" : : "r"(text.data()) : "memory");
    });
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    f.moduleReplies = timeOf([&] {
        for (const std::string& text : replies) {
            Json::Value root;
            std::string errors;
            reader->parse(text.data(), text.data() + text.size(), &root, &errors);
        }
    });
    /* The daemon's reader settings. */
    Json::CharReaderBuilder strict;
    strict["failIfExtra"] = true;
    strict["stackLimit"] = 100;
    std::unique_ptr<Json::CharReader> daemonReader(strict.newCharReader());
    f.daemonRequest = timeOf([&] {
        Json::Value root;
        std::string errors;
        daemonReader->parse(request.data(), request.data() + request.size(), &root, &errors);
    });
    /* Building a reply's tree is stood in for by copying the parsed one. */
    std::vector<Json::Value> trees;
    for (const std::string& text : replies) {
        Json::Value root;
        std::string errors;
        reader->parse(text.data(), text.data() + text.size(), &root, &errors);
        trees.push_back(root);
    }
    Json::StreamWriterBuilder compact;
    compact["indentation"] = "";
    f.daemonReplies = timeOf([&] {
        for (const Json::Value& tree : trees) {
            Json::Value copy(tree);
            std::string text = Json::writeString(compact, copy);
            asm volatile("" : : "r"(text.data()) : "memory");
        }
    });
    return f;
}

/* ---- load ---------------------------------------------------------------- */

struct LoadResult {
    int concurrency = 0;
    double elapsed = 0;
    std::vector<double> latencies;
    std::size_t incomplete = 0;   // searches that did not bring kMatches contacts
    double perSecond() const { return elapsed > 0 ? static_cast<double>(latencies.size()) / elapsed : 0; }
};

/* Room for each client thread's latencies, made before the module's heap
 * is measured. */
std::vector<std::vector<double>> latencyRoom;

/* Runs `clients` threads, each doing `one()` (which returns its latency,
 * negative when incomplete) again and again: a warm-up, then `measure`
 * seconds. */
LoadResult load(int clients, double measure, const std::function<double(int)>& one)
{
    if (latencyRoom.size() < static_cast<std::size_t>(clients))
        latencyRoom.resize(static_cast<std::size_t>(clients));
    LoadResult result;
    result.concurrency = clients;
    std::atomic<int> phase{0};   // 0 warm-up, 1 measuring, 2 stop
    std::mutex lock;
    std::vector<std::thread> threads;
    for (int c = 0; c < clients; c++) {
        threads.emplace_back([&, c] {
            std::vector<double>& mine = latencyRoom[static_cast<std::size_t>(c)];
            mine.clear();
            std::size_t bad = 0;
            int p;
            while ((p = phase.load()) != 2) {
                const double latency = one(c);
                if (phase.load() != 1 || p != 1)
                    continue;
                if (latency < 0)
                    bad++;
                else
                    mine.push_back(latency);
            }
            std::lock_guard<std::mutex> guard(lock);
            result.latencies.insert(result.latencies.end(), mine.begin(), mine.end());
            result.incomplete += bad;
        });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const Clock::time_point t0 = Clock::now();
    phase = 1;
    std::this_thread::sleep_for(std::chrono::duration<double>(measure));
    phase = 2;
    result.elapsed = seconds(Clock::now() - t0);
    for (std::thread& t : threads)
        t.join();
    return result;
}

/* A query client that tells its thread when the search is over. */
class LoadClient : public AbstractQueryClient {
public:
    LoadClient() { parameters = searchParameters(); }

    void requestFinished() override
    {
        std::lock_guard<std::mutex> guard(lock_);
        done_ = true;
        changed_.notify_one();
    }
    void addContact(const Contact&, CacheInfo) override { contacts++; }
    void addContact(const Contact&, CacheInfo, const std::string&, int) override { contacts++; }
    void addEvent(const Event&, CacheInfo) override {}
    void addFolder(const Folder&, CacheInfo) override {}

    bool wait(int ms)
    {
        std::unique_lock<std::mutex> guard(lock_);
        return changed_.wait_for(guard, std::chrono::milliseconds(ms), [this] { return done_; });
    }

    int contacts = 0;   // written by the kivo task before requestFinished

private:
    std::mutex lock_;
    std::condition_variable changed_;
    bool done_ = false;
};

/* Heap in use, sampled while the module runs. */
class HeapWatch {
public:
    HeapWatch() : base_(heapInUse()), peak_(base_)
    {
        thread_ = std::thread([this] {
            while (!stop_) {
                const long long h = heapInUse();
                if (h > peak_)
                    peak_ = h;
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        });
    }
    ~HeapWatch() { stop(); }
    void stop()
    {
        stop_ = true;
        if (thread_.joinable())
            thread_.join();
    }
    long long base() const { return base_; }
    long long peak() const { return peak_; }

private:
    long long base_;
    std::atomic<long long> peak_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

void printLoad(const char* what, const LoadResult& r)
{
    std::printf("  %-22s %4d %10.0f %10.1f %10.1f %8zu %10zu\n", what, r.concurrency, r.perSecond(),
                percentile(r.latencies, 0.5) * 1e6, percentile(r.latencies, 0.99) * 1e6, r.latencies.size(),
                r.incomplete);
}

}  // namespace

int main(int argc, char** argv)
{
    std::string webconfd = self() + "/webconfd";
    std::string echo = self() + "/kivo_echo";
    double measure = 3;
    bool rawOnly = false;
    std::vector<std::string> wrapper;
    for (int i = 1; i < argc; i++) {
        const std::string arg = argv[i];
        if (arg == "--daemon-wrapper" && i + 1 < argc) {
            const std::string words = argv[++i];
            for (std::size_t at = 0; at < words.size();) {
                const std::size_t end = std::min(words.find(' ', at), words.size());
                if (end > at)
                    wrapper.push_back(words.substr(at, end - at));
                at = end + 1;
            }
        } else if (arg == "--webconfd" && i + 1 < argc)
            webconfd = argv[++i];
        else if (arg == "--echo" && i + 1 < argc)
            echo = argv[++i];
        else if (arg == "--seconds" && i + 1 < argc)
            measure = std::min(30.0, std::max(0.5, std::atof(argv[++i])));
        else if (arg == "--raw-only")
            rawOnly = true;
        else {
            std::fprintf(stderr, "usage: kivo_load [--webconfd PATH] [--echo PATH] [--seconds S] [--raw-only]"
                                 " [--daemon-wrapper \"COMMAND ARGS\"]\n");
            return 2;
        }
    }
    if (!rawOnly && ::access(webconfd.c_str(), X_OK) != 0) {
        std::fprintf(stderr, "kivo_load: no webconfd at %s; measuring the raw floor only\n", webconfd.c_str());
        rawOnly = true;
    }
    const int levels[] = {1, 8, 64};

    char tmpl[] = "/tmp/kivo-load-XXXXXX";
    if (::mkdtemp(tmpl) == nullptr) {
        std::perror("kivo_load: mkdtemp");
        return 1;
    }
    const std::string dir = tmpl;
    const std::string ipc = dir + "/ipc";
    ::mkdir(ipc.c_str(), 0700);
    const std::string log = dir + "/daemons.log";

    /* The exchange to imitate: what webconfd answers, or, without it, a
     * reply as the daemon writes it. */
    const std::string request = requestText(1);
    std::vector<std::string> replies;
    pid_t daemon = -1;
    if (!rawOnly) {
        const std::string db = dir + "/phonebook.db";
        const std::string book = dir + "/phonebook.jsonl";
        writePhonebook(book);
        const pid_t import = spawn({webconfd, "--db", db, "--import", book}, log);
        if (finish(import, 30000, false) != 0) {
            std::fprintf(stderr, "kivo_load: webconfd --import failed (%s)\n", log.c_str());
            return 1;
        }
        std::vector<std::string> server = wrapper;
        server.insert(server.end(), {webconfd, "--db", db, "--ipc-dir", ipc});
        daemon = spawn(server, log);
        if (!waitForFile(ipc + "/webconfd@Local", 30000)) {
            std::fprintf(stderr, "kivo_load: webconfd did not come up (%s)\n", log.c_str());
            finish(daemon, 2000, true);
            return 1;
        }
        Socket probe(ipc + "/kivoprobe@Local");
        probe.send(ipc + "/webconfd@Local", message(0, request));
        daemonRequests++;
        for (;;) {
            const std::string text = messageText(probe.receive());
            if (text.empty())
                break;
            replies.push_back(text);
            Json::Value root;
            std::string errors;
            std::unique_ptr<Json::CharReader>(Json::CharReaderBuilder().newCharReader())
                ->parse(text.data(), text.data() + text.size(), &root, &errors);
            if (root["items"].empty())
                break;
        }
        if (replies.size() < 2) {
            std::fprintf(stderr, "kivo_load: webconfd did not answer the probe (%s)\n", log.c_str());
            finish(daemon, 2000, true);
            return 1;
        }
    } else {
        Response r;
        r.queryId = 1;
        r.type = Contacts;
        r.total = kMatches;
        for (int i = 0; i < kMatches; i++) {
            auto c = boost::make_shared<Contact>("", "load-" + std::to_string(i), "", "J\xfcrgen",
                                                 std::string(kName) + " " + std::to_string(i),
                                                 "Vornsyn Ger\xe4tebau GmbH", boost::none);
            c->numbers.push_back(ContactNumber{"gesch\xe4" "ftlich", "+49 711 123" + std::to_string(i), "", "", 2, 0, 0});
            c->numbers.push_back(ContactNumber{"mobil", "0170 555" + std::to_string(i), "", "", 3, 0, 0});
            c->extraText1 = "Stuttgart";
            r.items.push_back(c);
        }
        Json::StreamWriterBuilder compact;
        compact["indentation"] = "";
        replies.push_back(Json::writeString(compact, responseToJson(r)));
        r.items.clear();
        replies.push_back(Json::writeString(compact, responseToJson(r)));
    }

    std::printf("kivo_load: name search \"%s\", %d contacts; request datagram %zu B, replies", kName, kMatches,
                message(0, request).size());
    std::vector<std::string> replySizes;
    for (const std::string& text : replies) {
        std::printf(" %zu B", message(kReplyPrimitive, text).size());
        replySizes.push_back(std::to_string(message(kReplyPrimitive, text).size()));
    }
    std::printf("%s\n", rawOnly ? " (made here: no webconfd)" : " (from webconfd)");

    const Floors floors = measureFloors(request, replies);
    std::printf("  JSON floors per search: module %.1f us (request %.1f, replies %.1f), daemon %.1f us (request %.1f, "
                "replies %.1f)\n",
                (floors.moduleRequest + floors.moduleReplies) * 1e6, floors.moduleRequest * 1e6,
                floors.moduleReplies * 1e6, (floors.daemonRequest + floors.daemonReplies) * 1e6,
                floors.daemonRequest * 1e6, floors.daemonReplies * 1e6);

    /* The raw floor: the same datagrams between two processes. */
    std::vector<std::string> echoArgs = {echo, ipc + "/echo@Local", "--max-seconds", "300"};
    echoArgs.insert(echoArgs.end(), replySizes.begin(), replySizes.end());
    const pid_t echoPid = spawn(echoArgs, log);
    if (!waitForFile(ipc + "/echo@Local", 5000)) {
        std::fprintf(stderr, "kivo_load: kivo_echo did not come up (%s)\n", log.c_str());
        finish(echoPid, 2000, true);
        finish(daemon, 2000, true);
        return 1;
    }
    const std::string requestBytes = message(0, request);
    std::printf("\n  %-22s %4s %10s %10s %10s %8s %10s\n", "", "conc", "search/s", "p50 us", "p99 us", "count",
                "incomplete");
    std::vector<LoadResult> raw;
    for (int c : levels) {
        std::vector<std::unique_ptr<Socket>> sockets;
        for (int i = 0; i < c; i++)
            sockets.emplace_back(new Socket(ipc + "/raw" + std::to_string(i) + "@Local"));
        raw.push_back(load(c, measure, [&](int i) -> double {
            Socket& s = *sockets[static_cast<std::size_t>(i)];
            const Clock::time_point t0 = Clock::now();
            if (!s.send(ipc + "/echo@Local", requestBytes))
                return -1;
            for (std::size_t r = 0; r < replySizes.size(); r++)
                if (s.receiveLength() == 0)
                    return -1;
            return seconds(Clock::now() - t0);
        }));
        printLoad("raw datagrams", raw.back());
    }
    finish(echoPid, 2000, true);
    ::unlink((ipc + "/echo@Local").c_str());   /* a terminated echo leaves it */

    int status = 0;
    if (!rawOnly) {
        /* The daemon alone: the same client threads send the request as raw
         * datagrams and wait for the replies, without the module. */
        std::vector<LoadResult> direct;
        for (int c : levels) {
            std::vector<std::unique_ptr<Socket>> sockets;
            for (int i = 0; i < c; i++)
                sockets.emplace_back(new Socket(ipc + "/direct" + std::to_string(i) + "@Local"));
            direct.push_back(load(c, measure, [&](int i) -> double {
                Socket& s = *sockets[static_cast<std::size_t>(i)];
                const Clock::time_point t0 = Clock::now();
                daemonRequests++;
                if (!s.send(ipc + "/webconfd@Local", requestBytes))
                    return -1;
                for (std::size_t r = 0; r < replySizes.size(); r++)
                    if (s.receiveLength() == 0)
                        return -1;
                return seconds(Clock::now() - t0);
            }));
            printLoad("webconfd without module", direct.back());
        }

        for (std::vector<double>& room : latencyRoom)
            room.reserve(65536);
        /* The module, as the host loads and starts it. */
        if (PLT_SetIpcDir(ipc) != 0) {
            std::fprintf(stderr, "kivo_load: cannot use %s\n", ipc.c_str());
            finish(daemon, 2000, true);
            return 1;
        }
        const bool peakReset = resetPeakRss();
        const long rssBase = statusKb("VmRSS");
        HeapWatch heap;
        if (KIVO_ExpInit() != 0) {
            std::fprintf(stderr, "kivo_load: KIVO_ExpInit failed\n");
            finish(daemon, 2000, true);
            return 1;
        }
        PLT_Drain();
        std::vector<LoadResult> module;
        for (int c : levels) {
            module.push_back(load(c, measure, [](int) -> double {
                boost::shared_ptr<LoadClient> client = boost::make_shared<LoadClient>();
                const Clock::time_point t0 = Clock::now();
                daemonRequests++;
                KIVO_ExpQuery(client, SearchBackends);
                if (!client->wait(10000))
                    return -1;
                const double latency = seconds(Clock::now() - t0);
                return client->contacts == kMatches ? latency : -1;
            }));
            printLoad("module with webconfd", module.back());
        }
        heap.stop();
        const long hwm = statusKb("VmHWM");
        PLT_Shutdown();

        std::printf("\n  end to end against the floor (p50; floor = raw round trip + JSON floors of both sides)\n");
        for (std::size_t i = 0; i < module.size(); i++) {
            const double p50 = percentile(module[i].latencies, 0.5);
            const double floor = percentile(raw[i].latencies, 0.5) + floors.total();
            std::printf("  concurrency %2d: %9.1f us against %8.1f us = %5.2fx", module[i].concurrency, p50 * 1e6,
                        floor * 1e6, p50 / floor);
            if (module[i].concurrency == 1)
                std::printf("   target 4.00x  %s", p50 / floor <= 4 ? "met" : "MISSED");
            std::printf("\n");
            if (module[i].incomplete != 0)
                status = 1;
        }
        std::printf("  the module's share, p50 with the module minus p50 of webconfd alone:");
        for (std::size_t i = 0; i < module.size(); i++)
            std::printf("  %.1f us at %d", (percentile(module[i].latencies, 0.5) - percentile(direct[i].latencies, 0.5)) * 1e6,
                        module[i].concurrency);
        std::printf("\n");
        std::printf("\n  memory of the module's run: peak RSS %+.1f MiB over the %.1f MiB before the start%s; "
                    "peak heap in use %+.1f MiB\n",
                    static_cast<double>(hwm - rssBase) / 1024, static_cast<double>(rssBase) / 1024,
                    peakReset ? "" : " (peak not reset: includes the raw phase)",
                    static_cast<double>(heap.peak() - heap.base()) / (1024 * 1024));
    } else {
        std::printf("\n  no webconfd: the module's run is left out. With it built (cmake --build BUILD --target "
                    "webconfd), run kivo_load again.\n");
    }
    if (daemon > 0)
        std::printf("  requests sent to webconfd: %ld\n", daemonRequests.load());
    if (finish(daemon, 30000, true) != 0 && daemon > 0) {
        std::fprintf(stderr, "kivo_load: webconfd did not end cleanly (%s)\n", log.c_str());
        return 1;
    }
    ::unlink(log.c_str());
    ::unlink((dir + "/phonebook.db").c_str());
    ::unlink((dir + "/phonebook.jsonl").c_str());
    ::rmdir(ipc.c_str());
    ::rmdir(dir.c_str());
    return status;
}
