/*
 * The host's input lines. At a terminal (standard input and output both
 * terminals) lines are read with libedit: the arrow keys edit the line and
 * recall earlier ones, and the history is kept in a file of the user's
 * state directory across restarts. Otherwise lines are read as they come,
 * byte for byte, so scripts on a pipe are unaffected.
 */
#ifndef HOST_LINEINPUT_H
#define HOST_LINEINPUT_H

#include <string>

class LineInput {
public:
    /* `edit`: read with line editing and history (the caller has checked
     * that both ends are terminals). */
    explicit LineInput(bool edit);
    ~LineInput();
    LineInput(const LineInput&) = delete;
    LineInput& operator=(const LineInput&) = delete;

    /* Shows `prompt` (when not empty) and reads one line without its line
     * end; false at the end of input. */
    bool read(const std::string& prompt, std::string* line);

    /* Where the history is kept: $XDG_STATE_HOME/kivo/host-history, else
     * ~/.local/state/kivo/host-history; "" when neither can be named. */
    static std::string historyPath();

private:
    /* A line from a pipe or file, at most kInputLineMax bytes; a longer one
     * is reported and skipped. */
    bool readBounded(std::string* line);

    struct Editor;
    Editor* editor_ = nullptr;
    unsigned long lineNumber_ = 0;
};

#endif
