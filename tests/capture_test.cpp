// Captures: what the working platform writes for each event; the reader and kivo-replay on damaged files.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <fstream>
#include <iterator>

#include "platform/capture.h"
#include "platform/mantask.h"
#include "platform/runtime.h"
#include "platform/standin.h"
#include "process_util.h"

namespace {

constexpr int ALPHA = 10, BETA = 11;
std::atomic<int> g_delivered{0};

std::string readFile(const std::string& path)
{
    return {std::istreambuf_iterator<char>(std::ifstream(path, std::ios::binary).rdbuf()), {}};
}

void writeFile(const std::string& path, const std::string& bytes) { std::ofstream(path, std::ios::binary) << bytes; }

// One line per record: kind, status, source > destination, payload (hex, console lines as text), instance
// nonces as "N"; or, `kindsOnly`, its kind alone. Then "end" or the error.
std::string readAll(const std::string& path, bool kindsOnly = false)
{
    static const char* const kinds[] = {"?", "sent", "received", "local", "timer", "console", "dropped", "failed"};
    static const char digits[] = "0123456789abcdef";
    capture::Reader reader;
    capture::Record r;
    std::string out, error;
    if (!reader.open(path, error))
        return error + "\n";
    capture::Reader::Result result;
    while ((result = reader.next(r, error)) == capture::Reader::Next) {
        std::string line = kinds[static_cast<int>(r.kind)];
        if (!kindsOnly)
            line += " " + std::to_string(r.status) + " " + r.source + " > " + r.destination + " ";
        for (unsigned char c : kindsOnly ? std::string() : r.payload)
            line += r.kind == capture::Kind::Console ? std::string(1, c) : std::string{digits[c >> 4], digits[c & 15]};
        // The instance part of an address differs from run to run. (No
        // std::regex: GCC 12 warns inside it under AddressSanitizer.)
        for (std::size_t at = line.find("@Local."); at != std::string::npos; at = line.find("@Local.", at + 1))
            if (line.size() >= at + 19 && line.find_first_not_of("0123456789abcdef", at + 7) >= at + 19)
                line.replace(at + 7, 12, "N");
        out += line + "\n";
    }
    return out + (result == capture::Reader::End ? "end" : error) + "\n";
}

class CaptureTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(PLT_SetIpcDir(dir.path() + "/ipc"), MAN_OK); }
    void TearDown() override
    {
        PLT_Shutdown();
        PLT_CaptureStop();
    }
    TempDir dir;
    const std::string file = dir.path() + "/c.pcap";
};

// A capture of every kind of record, made by the working platform: two tasks in this process, a console line, a
// datagram between them, a local message, a timer, a send that fails and a malformed datagram. Read whole, then
// damaged copies of it.
TEST_F(CaptureTest, EveryEventIsOneRecordInOrderAndADamagedFileEndsAtTheRecordAtFault)
{
    auto count = [](int event, unsigned, void* raw) {
        if (event == MAN_EVENT_MESSAGE)
            MAN_ExpPFree(raw), g_delivered++;
    };
    g_delivered = 0;
    PLT_SetTimerUnitUs(1);
    ASSERT_EQ(PLT_CaptureStart(file, 1 << 20), MAN_OK);
    ASSERT_EQ(MAN_ExpTCreate("alpha", &TaskIdTbl[ALPHA], 0, count), MAN_OK);
    ASSERT_EQ(MAN_ExpTCreate("beta", &TaskIdTbl[BETA], 0, count), MAN_OK);
    PLT_CaptureConsoleLine("name W");
    CManMessage request, notice, timer;
    request.Create(0x00830001, 0, 0);
    Platform::addString(request, "{\"queryId\":1}");
    ASSERT_EQ(PLT_SendIpc(request, "alpha@Local", "beta@Local"), MAN_OK);
    PLT_Drain();
    notice.Create(0x00840002, 0, 0);
    ASSERT_EQ(PLT_SendLocal(notice, BETA), MAN_OK);
    PLT_Drain();
    timer.Create(0x00000002, 0, 0);
    Platform::addU32(timer, 7);
    ASSERT_EQ(PLT_TimerLocal(timer, ALPHA, 1), MAN_OK);
    for (int ms = 0; g_delivered < 3 && ms < kWaitMs; ms++)
        ::usleep(1000);
    ASSERT_EQ(PLT_SendIpc(request, nullptr, "nobody@Local"), MAN_E_NOTASK);
    // A tag 9 field: refused by the platform, kept by the capture.
    int fd = ::socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un sa{AF_UNIX, {}};
    std::snprintf(sa.sun_path, sizeof sa.sun_path, "%s/beta@Local", PLT_IpcDir().c_str());
    ASSERT_EQ(::sendto(fd, "\0\0\0\x02\x09", 5, 0, reinterpret_cast<sockaddr*>(&sa), sizeof sa), 5);
    ::close(fd);
    PLT_Drain();

    // Read while the capture is still open, as after a process killed now.
    const std::string query = "00830001020000000d7b2271756572794964223a317d\n";
    EXPECT_EQ(readAll(file), "console 0  >  name W\n"
                             "sent 0 alpha@Local.N > beta@Local " + query +
                             "received 0 alpha@Local.N > beta@Local.N " + query +
                             "local 0  > beta@Local.N 00840002\n"
                             "timer 0  > alpha@Local.N 000000020100000007\n"
                             "sent 0 alpha@Local.N > nobody@Local " + query +
                             "failed 2 alpha@Local.N > nobody@Local " + query +
                             "dropped 0  > beta@Local.N 0000000209\n"
                             "end\n");
    struct stat st;
    ASSERT_EQ(::stat(file.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);   // phonebook data: the user's alone

    PLT_CaptureStop();
    const std::string good = readFile(file);
    const std::size_t start[] = {0, 24, 52, 130, 221};   // of the file header, of records 1 to 4
    enum { Cut = 0, Byte = 1, Word = 4 };
    // At record `at` + `offset` (its pcap header first) the file is cut or a byte or a (host order) word set.
    // Expected: the kinds read, then the end or the error's beginning.
    const struct { int at, offset, what; uint32_t value; const char* expected; } cases[] = {
        {0, 10, Cut, 0, "file header: "},
        {0, 20, Word, 1, "file header: link type 1, not a kivo capture (147)"},
        {1, 7, Cut, 0, "record 1: "},
        {3, 16 + 3, Cut, 0, "console\nsent\nrecord 3: "},
        {3, 0, Cut, 0, "console\nsent\nend"},
        {2, 16, Byte, 9, "console\nrecord 2: version 9, not 1"},
        {4, 16 + 1, Byte, 0, "console\nsent\nreceived\nrecord 4: unknown kind 0"},
        {2, 16 + 4, Byte, 200, "console\nrecord 2: address longer than 63 bytes"},
        {1, 16 + 5, Byte, 60, "record 1: addresses run past the end of the record"},
        {1, 8, Word, 0x7fffffff, "record 1: "},   // 2 GiB
        {2, 12, Word, 99999, "console\nrecord 2: cut to 62 of its 99999 bytes"},
    };
    for (const auto& c : cases) {
        std::string bytes = good;
        const std::size_t at = start[c.at] + c.offset;
        if (c.what == Cut)
            bytes.resize(at);
        else
            bytes.replace(at, c.what, reinterpret_cast<const char*>(&c.value), c.what);   // little-endian
        writeFile(file, bytes);
        const std::string got = readAll(file, true);
        EXPECT_EQ(got.substr(0, std::strlen(c.expected)), c.expected) << got;
    }
}

TEST_F(CaptureTest, AFileThatCannotBeMadeIsRefusedAndTheLimitEndsOnAWholeRecord)
{
    EXPECT_EQ(PLT_CaptureStart(dir.path() + "/no/such/dir/c.pcap", 1 << 20), MAN_E_IO);
    PLT_CaptureConsoleLine("not written anywhere");
    static std::vector<std::string> logged;
    PLT_SetLogSink([](int, const char*, const char*, int, const char* text) { logged.push_back(text); });
    // The file header and exactly the first record.
    ASSERT_EQ(PLT_CaptureStart(file, 24 + 16 + capture::HEADER + 5), MAN_OK);
    for (const char* line : {"first", "second", "third"})
        PLT_CaptureConsoleLine(line);
    PLT_SetLogSink(nullptr);
    EXPECT_EQ(readAll(file), "console 0  >  first\nend\n");
    EXPECT_EQ(logged, std::vector<std::string>{"capture " + file + ": limit of 51 bytes reached, no further records"});
}

// One record without a file: its round trip, cutting what is too long, and the task of an address.
TEST(CaptureRecord, RoundTripCutAndTaskOfAnAddress)
{
    capture::Record in, out;
    std::string why;
    in.status = 0x1234;
    in.source = "kivo@Local.0123456789ab";
    in.destination = std::string(70, 'd');
    in.payload = std::string("\0\x83\0\x02", 4) + std::string(capture::MAX_PAYLOAD, 'p');
    const std::string cutAddress(capture::MAX_ADDRESS, 'd');
    const std::string bytes = capture::encode(in);
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    ASSERT_TRUE(capture::decode(data, bytes.size(), out, why)) << why;
    EXPECT_EQ(std::tie(out.kind, out.status, out.source, out.destination, out.payload),
              std::make_tuple(in.kind, 0x1234, in.source, cutAddress, in.payload.substr(0, capture::MAX_PAYLOAD)));
    EXPECT_FALSE(capture::decode(data, 5, out, why));
    EXPECT_EQ(why, "shorter than the record header (5 bytes)");
    for (const char* address : {"kivo@Local", "kivo@Local.0123456789ab", "", "kivo"})
        EXPECT_EQ(capture::taskOf(address), std::strchr(address, '@') ? "kivo" : "") << address;
}

// kivo-replay on a cut copy of a kept capture: its output up to the record at
// fault, then the error naming it; on a file that is no capture, the error alone.
TEST(CaptureReplay, ADamagedCaptureEndsTheReplayAtTheRecordAtFault)
{
    TempDir dir;
    const std::string kept = KIVO_SOURCE_DIR "tests/captures/timer-expiry";
    const std::string good = readFile(kept + ".pcap"), out = readFile(kept + ".out");
    const std::string cut = dir.path() + "/cut.pcap", text = dir.path() + "/text.pcap";
    writeFile(cut, good.substr(0, good.size() - 5));   // into the timer's record, the last
    writeFile(text, "name W\n");
    const std::pair<std::string, std::string> cases[] = {
        {cut, out.substr(0, out.rfind("idx name")) + "kivo-replay: " + cut + ": record 6: truncated dump file"},
        {text, "kivo-replay: " + text + ": file header: "},
    };
    for (const auto& c : cases) {
        Program replay({KIVO_REPLAY, c.first});
        EXPECT_EQ(replay.finish(), 1);
        EXPECT_EQ(replay.out().compare(0, c.second.size(), c.second), 0) << replay.out();
    }
}

}  // namespace
