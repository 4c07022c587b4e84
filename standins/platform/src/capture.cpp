/*
 * The working platform's capture writer (platform/capture.h): one pcap file
 * per process, written through libpcap under one lock from whichever thread
 * sends, receives or types. Each record is flushed at once, so a process
 * that is killed leaves every record it wrote readable.
 */
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>

#include <pcap/pcap.h>

#include "capture_hooks.h"
#include "platform/log.h"
#include "platform/runtime.h"


std::atomic<bool> plt::g_captureOn{false};

namespace {

constexpr unsigned long long FILE_HEADER = 24;    /* pcap's file header */
constexpr unsigned long long RECORD_HEADER = 16;  /* pcap's record header */

struct Writer {
    std::mutex mu;
    pcap_t* pcap = nullptr;
    pcap_dumper_t* dumper = nullptr;
    std::string path;
    unsigned long long limit = 0;
    unsigned long long written = 0;
    bool full = false;
};

Writer& writer()
{
    static Writer w;
    return w;
}

void closeLocked(Writer& w)
{
    plt::g_captureOn.store(false);
    if (w.dumper != nullptr)
        pcap_dump_close(w.dumper);
    if (w.pcap != nullptr)
        pcap_close(w.pcap);
    w.dumper = nullptr;
    w.pcap = nullptr;
}

void write(const capture::Record& record)
{
    const std::string bytes = capture::encode(record);
    Writer& w = writer();
    std::lock_guard<std::mutex> lock(w.mu);
    if (w.dumper == nullptr || w.full)
        return;
    if (w.written + RECORD_HEADER + bytes.size() > w.limit) {
        w.full = true;
        LOG_ExpError("platform", __func__, __LINE__, "capture %s: limit of %llu bytes reached, no further records",
                     w.path.c_str(), w.limit);
        return;
    }
    timeval now;
    ::gettimeofday(&now, nullptr);
    pcap_pkthdr header{};
    header.ts = now;
    header.caplen = static_cast<bpf_u_int32>(bytes.size());
    header.len = header.caplen;
    pcap_dump(reinterpret_cast<u_char*>(w.dumper), &header, reinterpret_cast<const u_char*>(bytes.data()));
    if (pcap_dump_flush(w.dumper) != 0) {
        w.full = true;
        LOG_ExpError("platform", __func__, __LINE__, "capture %s: %s, no further records", w.path.c_str(),
                     std::strerror(errno));
        return;
    }
    w.written += RECORD_HEADER + bytes.size();
}

std::string fileName(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

capture::Record record(capture::Kind kind, std::string source, std::string destination,
                       const unsigned char* bytes, std::size_t length)
{
    capture::Record r;
    r.kind = kind;
    r.source = std::move(source);
    r.destination = std::move(destination);
    r.payload.assign(reinterpret_cast<const char*>(bytes), length);
    return r;
}

}  // namespace

void plt::captureSent(int fd, const char* destination, const unsigned char* bytes, std::size_t length, int error)
{
    /* The caller goes on to read errno. */
    const int saved = errno;
    sockaddr_un self{};
    socklen_t size = sizeof self;
    std::string source;
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&self), &size) == 0 && size > offsetof(sockaddr_un, sun_path))
        source = fileName(std::string(self.sun_path, strnlen(self.sun_path, sizeof self.sun_path)));
    capture::Record r = record(error == 0 ? capture::Kind::Sent : capture::Kind::SendFailed, std::move(source),
                               destination, bytes, length);
    r.status = static_cast<uint16_t>(error);
    write(r);
    errno = saved;
}

void plt::captureDelivered(capture::Kind kind, const char* source, const std::string& taskPath,
                           const unsigned char* bytes, std::size_t length)
{
    write(record(kind, source, fileName(taskPath), bytes, length));
}

void plt::captureDropped(const std::string& sourcePath, const std::string& taskPath, const unsigned char* bytes,
                         std::size_t length)
{
    /* An unbound sender has no address ("(unbound)" in the log). */
    const std::string source = sourcePath.find('/') == std::string::npos ? std::string() : fileName(sourcePath);
    write(record(capture::Kind::Dropped, source, fileName(taskPath), bytes, length));
}

int PLT_CaptureStart(const std::string& path, unsigned long long limit)
{
    Writer& w = writer();
    std::lock_guard<std::mutex> lock(w.mu);
    closeLocked(w);
    /* The file holds phonebook data: the user's alone. */
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) {
        LOG_ExpError("platform", __func__, __LINE__, "capture %s: %s", path.c_str(), std::strerror(errno));
        return MAN_E_IO;
    }
    FILE* f = ::fdopen(fd, "wb");
    if (f == nullptr) {
        ::close(fd);
        LOG_ExpError("platform", __func__, __LINE__, "capture %s: %s", path.c_str(), std::strerror(errno));
        return MAN_E_NOMEM;
    }
    w.pcap = pcap_open_dead(capture::LINKTYPE, static_cast<int>(capture::MAX_RECORD));
    w.dumper = w.pcap != nullptr ? pcap_dump_fopen(w.pcap, f) : nullptr;
    if (w.dumper == nullptr) {
        LOG_ExpError("platform", __func__, __LINE__, "capture %s: %s", path.c_str(),
                     w.pcap != nullptr ? pcap_geterr(w.pcap) : "no memory");
        std::fclose(f);
        closeLocked(w);
        return MAN_E_IO;
    }
    if (pcap_dump_flush(w.dumper) != 0) {
        LOG_ExpError("platform", __func__, __LINE__, "capture %s: %s", path.c_str(), std::strerror(errno));
        closeLocked(w);
        return MAN_E_IO;
    }
    w.path = path;
    w.limit = limit;
    w.written = FILE_HEADER;
    w.full = false;
    plt::g_captureOn.store(true);
    return MAN_OK;
}

void PLT_CaptureStop()
{
    Writer& w = writer();
    std::lock_guard<std::mutex> lock(w.mu);
    closeLocked(w);
}

void PLT_CaptureConsoleLine(const std::string& line)
{
    if (!plt::captureOn())
        return;
    capture::Record r = record(capture::Kind::Console, std::string(), PLT_CurrentConsole(),
                               reinterpret_cast<const unsigned char*>(line.data()), line.size());
    if (line.size() > capture::MAX_PAYLOAD)
        r.status = capture::STATUS_CUT;
    write(r);
}
