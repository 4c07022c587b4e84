// Captures: what the working platform writes for each kind of event, and how
// the reader and kivo-replay meet truncated and corrupt files.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <condition_variable>
#include <algorithm>
#include <cstring>
#include <functional>
#include <fstream>
#include <iterator>
#include <mutex>

#include "platform/capture.h"
#include "platform/mantask.h"
#include "platform/runtime.h"
#include "platform/standin.h"
#include "process_util.h"

namespace {

constexpr int ALPHA = 10, BETA = 11;

std::mutex g_mu;
std::condition_variable g_cv;
int g_delivered = 0;

void taskCallback(int event, unsigned, void* raw)
{
    if (event != MAN_EVENT_MESSAGE)
        return;
    MAN_ExpPFree(raw);
    std::lock_guard<std::mutex> lock(g_mu);
    g_delivered++;
    g_cv.notify_all();
}

bool awaitDelivered(int n)
{
    std::unique_lock<std::mutex> lock(g_mu);
    return g_cv.wait_for(lock, std::chrono::milliseconds(kWaitMs), [n] { return g_delivered >= n; });
}

std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

void writeFile(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

const char* kindName(capture::Kind kind)
{
    static const char* const names[] = {"?", "sent", "received", "local", "timer", "console", "dropped", "failed"};
    return names[static_cast<int>(kind)];
}

/* The instance part of an address ("@Local." and 12 hex digits) as "N":
 * it differs from run to run. */
std::string maskNonces(std::string text)
{
    const std::string mark = "@Local.";
    for (std::size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at + 1)) {
        const std::size_t from = at + mark.size();
        if (text.size() >= from + 12 && text.find_first_not_of("0123456789abcdef", from) >= from + 12)
            text.replace(from, 12, "N");
    }
    return text;
}

/* Of each record line only its kind: where reading stops is what counts. */
std::string kindsOnly(const std::string& text)
{
    static const char* const kinds[] = {"sent ", "received ", "console ", "local ", "timer ", "failed ", "dropped "};
    std::string out;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t end = text.find('\n', at);
        end = end == std::string::npos ? text.size() : end;
        std::string line = text.substr(at, end - at);
        for (const char* kind : kinds)
            if (line.compare(0, std::strlen(kind), kind) == 0)
                line.resize(std::strlen(kind) - 1);
        out += line + (end < text.size() ? "\n" : "");
        at = end + 1;
    }
    return out;
}


// One line per record: kind, status, source > destination, payload (hex,
// console lines as text); instance nonces as "N".
std::string describe(const capture::Record& r)
{
    std::string payload;
    for (unsigned char c : r.payload) {
        char hex[4];
        std::snprintf(hex, sizeof hex, "%02x", c);
        payload += r.kind == capture::Kind::Console ? std::string(1, static_cast<char>(c)) : hex;
    }
    const std::string line = std::string(kindName(r.kind)) + " " + std::to_string(r.status) + " " + r.source +
                             " > " + r.destination + " " + payload + "\n";
    return maskNonces(line);
}

// The records of a file, then "end" or the error.
std::string readAll(capture::Reader& reader)
{
    std::string out, error;
    capture::Record r;
    for (;;) {
        switch (reader.next(r, error)) {
        case capture::Reader::Next:
            out += describe(r);
            break;
        case capture::Reader::End:
            return out + "end\n";
        case capture::Reader::Error:
            return out + error + "\n";
        }
    }
}

std::string readAll(const std::string& path)
{
    capture::Reader reader;
    std::string error;
    if (!reader.open(path, error))
        return error + "\n";
    return readAll(reader);
}

void message(CManMessage& m, unsigned primitive, const std::string& text = std::string(), bool u32 = false)
{
    m.Create(primitive, 0, 0);
    if (u32)
        Platform::addU32(m, 7);
    else if (!text.empty())
        Platform::addString(m, text);
}

// A capture of every kind of record, made by the working platform: two tasks
// in this process, a console line, a datagram between them, a local
// message, a timer, a send that fails and a malformed datagram.
class CaptureTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(PLT_SetIpcDir(dir.path() + "/ipc"), MAN_OK);
        PLT_SetTimerUnitUs(1);
        g_delivered = 0;
        file = dir.path() + "/c.pcap";
    }
    void TearDown() override
    {
        PLT_Shutdown();
        PLT_CaptureStop();
    }

    void makeCapture()
    {
        ASSERT_EQ(PLT_CaptureStart(file, 1 << 20), MAN_OK);
        ASSERT_EQ(MAN_ExpTCreate("alpha", &TaskIdTbl[ALPHA], 0, taskCallback), MAN_OK);
        ASSERT_EQ(MAN_ExpTCreate("beta", &TaskIdTbl[BETA], 0, taskCallback), MAN_OK);
        PLT_CaptureConsoleLine("name W");
        CManMessage request, notice, timer;
        message(request, 0x00830001, "{\"queryId\":1}");
        ASSERT_EQ(PLT_SendIpc(request, "alpha@Local", "beta@Local"), MAN_OK);
        ASSERT_TRUE(awaitDelivered(1));
        message(notice, 0x00840002);
        ASSERT_EQ(PLT_SendLocal(notice, BETA), MAN_OK);
        ASSERT_TRUE(awaitDelivered(2));
        message(timer, 0x00000002, "", true);
        ASSERT_EQ(PLT_TimerLocal(timer, ALPHA, 1), MAN_OK);
        ASSERT_TRUE(awaitDelivered(3));
        ASSERT_EQ(PLT_SendIpc(request, nullptr, "nobody@Local"), MAN_E_NOTASK);

        // A tag 9 field: refused by the platform, kept by the capture.
        int fd = ::socket(AF_UNIX, SOCK_DGRAM, 0);
        sockaddr_un sa{};
        sa.sun_family = AF_UNIX;
        std::snprintf(sa.sun_path, sizeof sa.sun_path, "%s/beta@Local", PLT_IpcDir().c_str());
        ASSERT_EQ(::sendto(fd, "\0\0\0\x02\x09", 5, 0, reinterpret_cast<sockaddr*>(&sa), sizeof sa), 5);
        ::close(fd);
        PLT_Drain();
    }

    // Offset of record n (from 1) in a capture of records `lengths` long.
    static std::size_t offsetOf(const std::string& bytes, int n)
    {
        std::size_t at = 24;
        for (int i = 1; i < n; i++) {
            uint32_t caplen;
            std::memcpy(&caplen, bytes.data() + at + 8, 4);
            at += 16 + caplen;
        }
        return at;
    }

    TempDir dir;
    std::string file;
};

TEST_F(CaptureTest, EveryEventBecomesOneRecordInOrder)
{
    makeCapture();
    PLT_CaptureStop();
    EXPECT_EQ(readAll(file),
              "console 0  >  name W\n"
              "sent 0 alpha@Local.N > beta@Local 00830001020000000d7b227175657279496422" "3a317d\n"
              "received 0 alpha@Local.N > beta@Local.N 00830001020000000d7b227175657279496422" "3a317d\n"
              "local 0  > beta@Local.N 00840002\n"
              "timer 0  > alpha@Local.N 000000020100000007\n"
              "sent 0 alpha@Local.N > nobody@Local 00830001020000000d7b227175657279496422" "3a317d\n"
              "failed 2 alpha@Local.N > nobody@Local 00830001020000000d7b227175657279496422" "3a317d\n"
              "dropped 0  > beta@Local.N 0000000209\n"
              "end\n");
}

TEST_F(CaptureTest, EachRecordIsInTheFileBeforeTheCaptureEnds)
{
    makeCapture();
    // Still open, as in a process that is killed now.
    const std::string seen = readAll(file);
    EXPECT_EQ(std::count(seen.begin(), seen.end(), '\n'), 9) << seen;
    struct stat st;
    ASSERT_EQ(::stat(file.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);   // phonebook data: the user's alone
}

TEST_F(CaptureTest, TheLimitEndsTheCaptureOnAWholeRecord)
{
    static std::vector<std::string> logged;
    logged.clear();
    PLT_SetLogSink([](int, const char*, const char*, int, const char* text) { logged.push_back(text); });
    // The file header and exactly the first record.
    ASSERT_EQ(PLT_CaptureStart(file, 24 + 16 + capture::HEADER + 5), MAN_OK);
    PLT_CaptureConsoleLine("first");
    PLT_CaptureConsoleLine("second");
    PLT_CaptureConsoleLine("third");
    PLT_SetLogSink(nullptr);
    EXPECT_EQ(readAll(file), "console 0  >  first\nend\n");
    ASSERT_EQ(logged.size(), 1u);
    EXPECT_EQ(logged[0], "capture " + file + ": limit of 51 bytes reached, no further records");
}

TEST_F(CaptureTest, ACaptureThatCannotBeCreatedIsRefused)
{
    EXPECT_EQ(PLT_CaptureStart(dir.path() + "/no/such/dir/c.pcap", 1 << 20), MAN_E_IO);
    PLT_CaptureConsoleLine("not written anywhere");
}

// A damaged copy of the capture of every kind: what the reader says.
struct Damage {
    const char* name;
    std::function<void(std::string&, const std::function<std::size_t(int)>&)> apply;
    const char* expected;   // the records read, then the end or the error's beginning
};

TEST_F(CaptureTest, DamagedFilesEndWithTheRecordAtFault)
{
    makeCapture();
    PLT_CaptureStop();
    const std::string good = readFile(file);
    auto put32 = [](std::string& b, std::size_t at, uint32_t v) { std::memcpy(&b[at], &v, 4); };
    const Damage cases[] = {
        {"cut in the file header", [](std::string& b, auto) { b.resize(10); }, "file header: "},
        {"empty", [](std::string& b, auto) { b.clear(); }, "file header: "},
        {"another link type", [&](std::string& b, auto) { put32(b, 20, 1); },
         "file header: link type 1, not a kivo capture (147)"},
        {"cut in record 1's pcap header", [](std::string& b, auto at) { b.resize(at(1) + 7); }, "record 1: "},
        {"cut in record 3's bytes", [](std::string& b, auto at) { b.resize(at(3) + 16 + 3); },
         "console\nsent\nrecord 3: "},
        {"cut after record 2", [](std::string& b, auto at) { b.resize(at(3)); }, "console\nsent\nend"},
        {"record 2 of version 9", [](std::string& b, auto at) { b[at(2) + 16] = 9; },
         "console\nrecord 2: version 9, not 1"},
        {"record 4 of kind 0", [](std::string& b, auto at) { b[at(4) + 16 + 1] = 0; },
         "console\nsent\nreceived\nrecord 4: unknown kind 0"},
        {"record 2 with a source of 200 bytes", [](std::string& b, auto at) { b[at(2) + 16 + 4] = char(200); },
         "console\nrecord 2: address longer than 63 bytes"},
        {"record 1's addresses past its end", [](std::string& b, auto at) { b[at(1) + 16 + 5] = 60; },
         "record 1: addresses run past the end of the record"},
        {"record 1 of 2 GiB", [&](std::string& b, auto at) { put32(b, at(1) + 8, 0x7fffffff); }, "record 1: "},
        {"record 2 cut by the snapshot length", [&](std::string& b, auto at) { put32(b, at(2) + 12, 99999); },
         "console\nrecord 2: cut to 62 of its 99999 bytes"},
    };
    for (const Damage& c : cases) {
        std::string bytes = good;
        c.apply(bytes, [&good](int n) { return offsetOf(good, n); });
        writeFile(file, bytes);
        std::string got = readAll(file);
        // Only each record's kind: the cases are about where reading stops.
        got = kindsOnly(got);
        EXPECT_EQ(got.compare(0, std::strlen(c.expected), c.expected), 0) << c.name << ":\n" << got;
    }
}

// Encoding and decoding one record, without a file.
TEST(CaptureRecord, RoundTripOfEveryKindAndCutOfWhatIsTooLong)
{
    for (uint8_t k = 1; k <= capture::LAST_KIND; k++) {
        capture::Record in;
        in.kind = static_cast<capture::Kind>(k);
        in.status = 0x1234;
        in.source = "kivo@Local.0123456789ab";
        in.destination = std::string(70, 'd');
        in.payload = std::string("\0\x83\0\x02", 4) + std::string(capture::MAX_PAYLOAD, 'p');
        const std::string bytes = capture::encode(in);
        capture::Record out;
        std::string why;
        ASSERT_TRUE(capture::decode(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), out, why))
            << why;
        EXPECT_EQ(out.kind, in.kind);
        EXPECT_EQ(out.status, 0x1234);
        EXPECT_EQ(out.source, in.source);
        EXPECT_EQ(out.destination, std::string(capture::MAX_ADDRESS, 'd'));
        EXPECT_EQ(out.payload, in.payload.substr(0, capture::MAX_PAYLOAD));
    }
}

TEST(CaptureRecord, TaskOfAnAddress)
{
    const std::pair<const char*, const char*> cases[] = {
        {"kivo@Local", "kivo"}, {"kivo@Local.0123456789ab", "kivo"}, {"", ""}, {"kivo", ""}};
    for (const auto& c : cases)
        EXPECT_EQ(capture::taskOf(c.first), c.second) << c.first;
}

// kivo-replay on a cut copy of a session's capture: the output up to the
// record at fault, then an error naming it.
TEST(CaptureReplay, ACutCaptureEndsTheReplayWithItsRecord)
{
    TempDir dir;
    const std::string good = readFile(KIVO_SOURCE_DIR "tests/captures/readme-session.pcap");
    ASSERT_GT(good.size(), 1000u);
    const std::string cut = dir.path() + "/cut.pcap";
    writeFile(cut, good.substr(0, good.size() - 5));
    Program replay({KIVO_REPLAY, cut});
    EXPECT_EQ(replay.finish(), 1);
    const std::string out = replay.out();
    EXPECT_NE(out.find("CmdSearchByName"), std::string::npos) << out;
    const std::string head = "kivo-replay: " + cut + ": record ";
    const std::size_t at = out.find(head);
    ASSERT_NE(at, std::string::npos) << out;
    const std::size_t digits = out.find_first_not_of("0123456789", at + head.size());
    EXPECT_GT(digits, at + head.size()) << out;
    EXPECT_EQ(out.compare(digits, 11, ": truncated"), 0) << out;
}

TEST(CaptureReplay, WhatIsNoCaptureIsRefusedBeforeTheModuleStarts)
{
    TempDir dir;
    const std::string text = dir.path() + "/text.pcap";
    writeFile(text, "name W\n");
    Program replay({KIVO_REPLAY, text});
    EXPECT_EQ(replay.finish(), 1);
    EXPECT_EQ(replay.out().find("kivo-replay: " + text + ": file header: "), 0u) << replay.out();
}

}  // namespace
