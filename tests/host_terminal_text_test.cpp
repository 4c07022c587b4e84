/* What the host shows at a terminal: phonebook text must not steer it. */
#include <gtest/gtest.h>

#include "terminal-text.h"

namespace {

struct Case { const char* name; std::string latin1; bool utf8; std::string shown; };
const Case kCases[] = {
    {"LineFeedAndTabStay", "a\tb\n", false, "a\tb\n"},
    {"EscapeAndBellShown", "\x1B]0;x\x07", false, "\\x1B]0;x\\x07"},
    {"EdgesOfC0", std::string("\x00\x1F\x20", 3), false, "\\x00\\x1F "},
    {"DelAndC1Shown", "\x7E\x7F\x80\x9F\xA0", false, "\x7E\\x7F\\x80\\x9F\xA0"},
    {"ReturnShown", "a\rb", false, "a\\x0Db"},
    {"Latin1InUtf8", "J\xF6rg\x9B", true, "J\xC3\xB6rg\\x9B"},
};
class TerminalText : public ::testing::TestWithParam<Case> {};

TEST_P(TerminalText, Shows) { EXPECT_EQ(host::forTerminal(GetParam().latin1, GetParam().utf8), GetParam().shown); }
INSTANTIATE_TEST_SUITE_P(Host, TerminalText, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
