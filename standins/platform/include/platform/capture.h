/*
 * Captures: what a process sent, received and was told, as a pcap file
 * (kivo-host --capture, webconfd --capture; docs/capture.md). Wireshark reads
 * the file with tools/wireshark/kivo.lua, kivo-replay feeds it back to the
 * module on the recording platform.
 *
 * Each pcap record of link type LINKTYPE_USER0 (147, reserved for private
 * use) holds one of our records, numbers most significant byte first as on
 * the wire:
 *
 *   version:u8 (1)  kind:u8  status:u16  sourceLength:u8  destinationLength:u8
 *   source  destination  payload
 *
 * The payload is the message bytes (primitive first) or, for a console
 * record, the line as the terminal got it. Addresses are IPC addresses
 * ("kivo@Local.<nonce>"), empty where there is none.
 *
 * The writer belongs to the working platform (PLT_Capture*); the reader is
 * for any program (kivo-replay, the tests) and trusts nothing in the file.
 */
#ifndef PLATFORM_CAPTURE_H
#define PLATFORM_CAPTURE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/attrs.h"
#include "platform/standin.h"

namespace capture {

constexpr int LINKTYPE = 147;            /* LINKTYPE_USER0 */
constexpr unsigned VERSION = 1;
constexpr std::size_t HEADER = 6;
constexpr std::size_t MAX_ADDRESS = 63;  /* as a received message keeps it */
/* A dropped datagram is kept as read: up to one byte past the largest
 * message. */
constexpr std::size_t MAX_PAYLOAD = MAN_MAX_MSG + 1;
constexpr std::size_t MAX_RECORD = HEADER + 2 * MAX_ADDRESS + MAX_PAYLOAD;

enum class Kind : uint8_t {
    Sent = 1,      /* a datagram this process is sending, written before the send */
    Received = 2,  /* a datagram handed to a task */
    Local = 3,     /* a local message handed to a task (SendLocal) */
    Timer = 4,     /* a timer's message handed to a task */
    Console = 5,   /* a line given to the debug terminal; destination: the console it was in */
    Dropped = 6,   /* a datagram the platform refused (too short, too long, malformed) */
    SendFailed = 7,  /* the send of the Sent record before failed; status: its errno */
};
constexpr uint8_t LAST_KIND = 7;

/* Status of a console record whose line was longer than MAX_PAYLOAD. */
constexpr uint16_t STATUS_CUT = 1;

struct Record {
    unsigned long number = 0;  /* from 1, in file order */
    long long seconds = 0;     /* time of the event, since 1970 */
    unsigned long micros = 0;
    Kind kind = Kind::Sent;
    uint16_t status = 0;
    std::string source;
    std::string destination;
    std::string payload;
};

/* The record's bytes as a pcap record carries them; addresses longer than
 * MAX_ADDRESS and payloads longer than MAX_PAYLOAD are cut. */
std::string encode(const Record& record);

/* Reads one pcap record's bytes into `record` (number and time untouched);
 * false with the reason when they are not a record of ours. */
bool decode(const unsigned char* data, std::size_t length, Record& record, std::string& why);

/* The task name of an address: "kivo" for "kivo@Local" and
 * "kivo@Local.<nonce>"; "" when it has none. */
std::string taskOf(const std::string& address);

/* Reads a capture record by record. Errors name the record that could not
 * be read ("record 7: ..."); the reader allocates at most one record's
 * worth beyond libpcap's bounded buffer. */
class Reader {
public:
    Reader();
    ~Reader();
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    /* false with the reason when the file is no capture of ours. */
    bool open(const std::string& path, std::string& error);
    /* The same over bytes in memory (the fuzz target); they must outlive
     * the reader. */
    bool openMemory(const void* data, std::size_t size, std::string& error);

    enum Result { Next, End, Error };
    Result next(Record& record, std::string& error);

private:
    bool start(void* pcap, std::string& error);
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace capture

/* The working platform's capture. Start opens FILE (mode 0600: it holds
 * phonebook data) and records from then on every datagram sent or received,
 * every local and timer message handed to a task and every console line the
 * program notes. Each record is flushed as it is written. Once the file
 * would grow past `limit` bytes, one error is logged and nothing more is
 * written. Result 0 or a MAN_E_ code; the reason is logged. */
PLT_API int PLT_CaptureStart(const std::string& path, unsigned long long limit);
/* Closes the capture; later events are not recorded. */
PLT_API void PLT_CaptureStop();
/* A line the program gives the debug terminal now (before PLT_TerminalLine). */
PLT_API void PLT_CaptureConsoleLine(const std::string& line);

#endif
