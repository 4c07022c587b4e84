/*
 * The capture's record format and its reader (platform/capture.h). libpcap
 * reads the file and bounds each record by the snapshot length it allows
 * for the link type; what is inside a record is checked here, so a
 * truncated or corrupt file ends with the number of the record at fault.
 */
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <pcap/pcap.h>

#include "platform/capture.h"

namespace capture {

namespace {

void put16(std::string& out, uint16_t v)
{
    out += static_cast<char>(v >> 8);
    out += static_cast<char>(v & 0xFF);
}

}  // namespace

std::string encode(const Record& record)
{
    const std::string source = record.source.substr(0, MAX_ADDRESS);
    const std::string destination = record.destination.substr(0, MAX_ADDRESS);
    const std::size_t payload = std::min(record.payload.size(), MAX_PAYLOAD);
    std::string out;
    out.reserve(HEADER + source.size() + destination.size() + payload);
    out += static_cast<char>(VERSION);
    out += static_cast<char>(record.kind);
    put16(out, record.status);
    out += static_cast<char>(source.size());
    out += static_cast<char>(destination.size());
    out += source;
    out += destination;
    out.append(record.payload, 0, payload);
    return out;
}

bool decode(const unsigned char* data, std::size_t length, Record& record, std::string& why)
{
    if (length < HEADER) {
        why = "shorter than the record header (" + std::to_string(length) + " bytes)";
        return false;
    }
    if (data[0] != VERSION) {
        why = "version " + std::to_string(data[0]) + ", not " + std::to_string(VERSION);
        return false;
    }
    if (data[1] == 0 || data[1] > LAST_KIND) {
        why = "unknown kind " + std::to_string(data[1]);
        return false;
    }
    const std::size_t sourceLength = data[4];
    const std::size_t destinationLength = data[5];
    if (sourceLength > MAX_ADDRESS || destinationLength > MAX_ADDRESS) {
        why = "address longer than " + std::to_string(MAX_ADDRESS) + " bytes";
        return false;
    }
    if (sourceLength + destinationLength > length - HEADER) {
        why = "addresses run past the end of the record";
        return false;
    }
    const std::size_t payload = length - HEADER - sourceLength - destinationLength;
    if (payload > MAX_PAYLOAD) {
        why = "payload of " + std::to_string(payload) + " bytes, more than " + std::to_string(MAX_PAYLOAD);
        return false;
    }
    const char* p = reinterpret_cast<const char*>(data) + HEADER;
    record.kind = static_cast<Kind>(data[1]);
    record.status = static_cast<uint16_t>((data[2] << 8) | data[3]);
    record.source.assign(p, sourceLength);
    record.destination.assign(p + sourceLength, destinationLength);
    record.payload.assign(p + sourceLength + destinationLength, payload);
    return true;
}

std::string taskOf(const std::string& address)
{
    const std::size_t at = address.find("@Local");
    return at == std::string::npos ? std::string() : address.substr(0, at);
}

struct Reader::State {
    pcap_t* pcap = nullptr;
    unsigned long records = 0;
    bool failed = false;
    ~State()
    {
        if (pcap != nullptr)
            pcap_close(pcap);
    }
};

Reader::Reader() : state_(new State)
{
}

Reader::~Reader() = default;

bool Reader::open(const std::string& path, std::string& error)
{
    char message[PCAP_ERRBUF_SIZE] = "";
    pcap_t* p = pcap_open_offline(path.c_str(), message);
    if (p == nullptr) {
        error = std::string("file header: ") + message;
        return false;
    }
    return start(p, error);
}

bool Reader::openMemory(const void* data, std::size_t size, std::string& error)
{
    if (size == 0) {
        error = "file header: empty file";
        return false;
    }
    FILE* f = fmemopen(const_cast<void*>(data), size, "rb");
    if (f == nullptr) {
        error = std::string("file header: ") + std::strerror(errno);
        return false;
    }
    char message[PCAP_ERRBUF_SIZE] = "";
    pcap_t* p = pcap_fopen_offline(f, message);
    if (p == nullptr) {
        std::fclose(f);
        error = std::string("file header: ") + message;
        return false;
    }
    return start(p, error);
}

bool Reader::start(void* pcap, std::string& error)
{
    state_.reset(new State);
    state_->pcap = static_cast<pcap_t*>(pcap);
    const int link = pcap_datalink(state_->pcap);
    if (link != LINKTYPE) {
        error = "file header: link type " + std::to_string(link) + ", not a kivo capture (" +
                std::to_string(LINKTYPE) + ")";
        state_->failed = true;
        return false;
    }
    return true;
}

Reader::Result Reader::next(Record& record, std::string& error)
{
    if (state_->pcap == nullptr || state_->failed) {
        error = "no capture open";
        return Error;
    }
    pcap_pkthdr* header = nullptr;
    const u_char* data = nullptr;
    const unsigned long number = state_->records + 1;
    const int rc = pcap_next_ex(state_->pcap, &header, &data);
    if (rc == PCAP_ERROR_BREAK)
        return End;
    std::string why;
    if (rc != 1)
        why = pcap_geterr(state_->pcap);
    else if (header->caplen != header->len)
        why = "cut to " + std::to_string(header->caplen) + " of its " + std::to_string(header->len) + " bytes";
    else if (decode(data, header->caplen, record, why))
        why.clear();
    else if (why.empty())
        why = "unreadable";
    if (!why.empty()) {
        state_->failed = true;
        error = "record " + std::to_string(number) + ": " + why;
        return Error;
    }
    state_->records = number;
    record.number = number;
    record.seconds = static_cast<long long>(header->ts.tv_sec);
    record.micros = static_cast<unsigned long>(header->ts.tv_usec);
    return Next;
}

}  // namespace capture
