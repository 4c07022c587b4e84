/*
 * The module's state as loaded, before any case resets it; the start and
 * everything after it are cases in tests/transcripts/startup.
 */
#include "kivo_fixture.h"

namespace {

/* Levels exp and info, the interface switch, the next query id. */
const std::vector<int> loaded = {KIVODebugLevel[0], KIVODebugLevel[1], iIfcEnable, static_cast<int>(uiQueryId)};

TEST(Load, StateBeforeTheStart)
{
    EXPECT_EQ(loaded, (std::vector<int>{0, 0, 1, 0}));
}

}  // namespace
