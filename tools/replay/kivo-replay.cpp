/*
 * kivo-replay: runs the module on the recording platform against a capture
 * of kivo-host (docs/capture.md). It starts the module as the host does,
 * then goes through the capture in its order: console lines are typed, the
 * replies, local messages and timer expiries the module's task received are
 * handed to it again. What the module writes to the terminal goes to
 * standard output, its log records to standard error, so the output of a
 * replay is the captured session's terminal output byte for byte.
 *
 * What the module sent is not replayed: the module sends it again itself.
 * The capture is untrusted: anything that is not a record the host could
 * have written ends the replay with the record's number.
 */
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "kivo.h"
#include "platform/capture.h"
#include "platform/log.h"
#include "platform/manmsg.h"
#include "platform/mantask.h"
#include "platform/recording.h"

namespace {

const char kUsage[] =
    "usage: kivo-replay CAPTURE\n"
    "\n"
    "Runs the kivo module against a capture of kivo-host (--capture): types its\n"
    "console lines and hands the module's task the replies and timer messages it\n"
    "received, in their order. Standard output is what the module wrote to the\n"
    "terminal, standard error its log records.\n"
    "Exit codes: 0 replayed, 1 the capture cannot be read (the record is named),\n"
    "2 bad command line, 3 the module did not start.\n";

/* The debug terminal as the working platform runs it, over the consoles
 * the module registered with the recording platform. */
class Terminal {
public:
    void type(const std::string& line)
    {
        if (current_.empty()) {
            const std::size_t b = line.find_first_not_of(" \t\r\n");
            if (b == std::string::npos)
                return;
            const std::string word = line.substr(b, line.find_last_not_of(" \t\r\n") - b + 1);
            for (const rec::Console& c : rec::recorder().consoles)
                if (c.name == word) {
                    current_ = word;
                    return;
                }
            UI_ExpWritef("unknown console: %s\n", word.c_str());
            return;
        }
        for (const rec::Console& c : rec::recorder().consoles)
            if (c.name == current_) {
                const int returns = rec::recorder().dtmReturns;
                c.interpreter(line.c_str());
                if (rec::recorder().dtmReturns != returns)
                    current_.clear();
                return;
            }
    }

private:
    std::string current_;
};

/* Writes what the module wrote since the last call. */
class Output {
public:
    void flush()
    {
        const rec::Recorder& r = rec::recorder();
        for (; terminal_ < r.terminal.size(); terminal_++)
            std::fwrite(r.terminal[terminal_].data(), 1, r.terminal[terminal_].size(), stdout);
        std::fflush(stdout);
        for (; logs_ < r.logs.size(); logs_++) {
            const rec::LogRecord& l = r.logs[logs_];
            std::fprintf(stderr, "%s %s %s:%d %s\n", l.level ? "ERROR" : "INFO", l.file.c_str(), l.function.c_str(),
                         l.line, l.text.c_str());
        }
    }

private:
    std::size_t terminal_ = 0;
    std::size_t logs_ = 0;
};

/* Index of the module's task an address names; -1 for other tasks. */
int moduleTask(const std::string& address)
{
    const std::string name = capture::taskOf(address);
    for (const rec::Task& t : rec::recorder().tasks)
        if (!name.empty() && t.name == name)
            return t.index;
    return -1;
}

/* Hands a received message to the module's task, as the working platform
 * would: only well-formed messages reach a task. */
bool deliver(int task, const std::string& bytes, std::string& why)
{
    if (bytes.size() > MAN_MAX_MSG) {
        why = "message longer than " + std::to_string(MAN_MAX_MSG) + " bytes";
        return false;
    }
    void* raw = rec::makeRaw(std::vector<unsigned char>(bytes.begin(), bytes.end()));
    CManMessage check;
    if (raw == nullptr || check.Assign(raw) != 0) {
        if (raw != nullptr)
            MAN_ExpPFree(raw);
        why = "not a well-formed message";
        return false;
    }
    const auto* b = static_cast<const unsigned char*>(raw);
    const unsigned int primitive = (static_cast<unsigned int>(b[0]) << 24) | (static_cast<unsigned int>(b[1]) << 16) |
                                   (static_cast<unsigned int>(b[2]) << 8) | b[3];
    rec::deliver(task, MAN_EVENT_MESSAGE, primitive, raw);
    return true;
}

/* One record; false with the reason when it cannot be replayed. */
bool replay(const capture::Record& r, Terminal& terminal, std::string& why)
{
    switch (r.kind) {
    case capture::Kind::Console:
        if (r.status == capture::STATUS_CUT) {
            why = "console line cut in the capture";
            return false;
        }
        terminal.type(r.payload);
        return true;
    case capture::Kind::Received:
    case capture::Kind::Local:
    case capture::Kind::Timer: {
        const int task = moduleTask(r.destination);
        return task < 0 || deliver(task, r.payload, why);
    }
    case capture::Kind::Sent:
    case capture::Kind::SendFailed:
    case capture::Kind::Dropped:
        return true;
    }
    why = "unknown kind";
    return false;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (argc != 2 || argv[1][0] == '-') {
        std::fputs(kUsage, stderr);
        return 2;
    }
    const std::string file = argv[1];
    capture::Reader reader;
    std::string error;
    if (!reader.open(file, error)) {
        std::fprintf(stderr, "kivo-replay: %s: %s\n", file.c_str(), error.c_str());
        return 1;
    }

    Output output;
    /* Started as the host starts it: KIVO_ExpInit, then each task's start
     * event before anything else reaches it. */
    rec::reset();
    const int code = KIVO_ExpInit();
    for (const rec::Task& t : rec::recorder().tasks)
        if (code == 0)
            rec::deliver(t.index, MAN_EVENT_CONTROL, MAN_PRIM_START, nullptr);
    output.flush();
    if (code != 0) {
        std::fprintf(stderr, "kivo-replay: KIVO_ExpInit failed with code %d\n", code);
        return 3;
    }

    Terminal terminal;
    capture::Record record;
    for (;;) {
        const capture::Reader::Result result = reader.next(record, error);
        if (result == capture::Reader::End)
            return 0;
        std::string why;
        if (result == capture::Reader::Next && !replay(record, terminal, why))
            error = "record " + std::to_string(record.number) + ": " + why;
        output.flush();
        if (!error.empty()) {
            std::fprintf(stderr, "kivo-replay: %s: %s\n", file.c_str(), error.c_str());
            return 1;
        }
    }
}
