/*
 * The host with the real module against a scripted daemon, over real
 * sockets in a private directory: standard output is compared byte for byte.
 */
#include <gtest/gtest.h>
#include <json/json.h>

#include <memory>

#include "process_util.h"

namespace {

const char kHeader[] =
    "idx name                  firstname             uid                   backend\n"
    "------------------------------------------------------------------------------------\n";

class HostE2E : public ::testing::Test {
protected:
    void SetUp() override
    {
        ipc = dir.path() + "/ipc";
        log = dir.path() + "/requests";
        peer.reset(new Background({KIVO_TEST_PEER, "--ipc-dir", ipc, "--log", log}, dir.path() + "/peer.err"));
        ASSERT_TRUE(waitForPath(ipc + "/webconfd@Local", 10000)) << readFile(dir.path() + "/peer.err");
    }

    /* Runs the host inside the kivo console; a query timer lasts 500 ms. */
    RunResult host(const std::string& script)
    {
        return runProgram({KIVO_HOST, "--ipc-dir", ipc, "--timer-unit-us", "100", "--enter", "kivo"}, script, 30000);
    }

    std::vector<Json::Value> requests() const
    {
        std::vector<Json::Value> all;
        std::istringstream lines(readFile(log));
        std::string line;
        while (std::getline(lines, line)) {
            Json::Value v;
            std::unique_ptr<Json::CharReader> r(Json::CharReaderBuilder().newCharReader());
            if (r->parse(line.data(), line.data() + line.size(), &v, nullptr))
                all.push_back(v);
        }
        return all;
    }

    TempDir dir;
    std::string ipc;
    std::string log;
    std::unique_ptr<Background> peer;
};

TEST_F(HostE2E, SearchWithResultsPrintsTheTable)
{
    const RunResult r = host("name W\n!sleep 1000\n");
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, std::string("CmdSearchByName\n"
                                 "KIVO_TFSearchByName  strName W\n"
                                 "addContact:923  strSearchPattern W  iCountFound 2\n"
                                 "addContact:923  strSearchPattern W  iCountFound 2\n") +
                         kHeader +
                         " 0) Wefer                 Tilmo                 17                    vornsyn   \n"
                         "    |--  0 * 011122233344                       1 2\n"
                         "    '--  1   +49 711 123456                     3 0\n"
                         " 1) St\xF6" "be                 Elka                  18                    vornsyn   \n");
    EXPECT_EQ(r.err, "");
    const std::vector<Json::Value> sent = requests();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0]["params"]["type"].asInt(), 2);
    EXPECT_EQ(sent[0]["size"].asInt(), 100);
}

TEST_F(HostE2E, EmptySearchPrintsTheHeaderOnly)
{
    const RunResult r = host("number 0711\n!sleep 1000\n");
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, std::string("CmdSearchByNumber\nKIVO_TFSearchByNumber  strNumber 0711\n") + kHeader);
}

TEST_F(HostE2E, UnansweredSearchEndsByItsTimer)
{
    const RunResult r = host("ts info 1\nname silent\n!sleep 2000\n");
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const std::string tail = std::string(kHeader) + "Timeout:676 query 0 finished by timer\n";
    ASSERT_GE(r.out.size(), tail.size()) << r.out;
    EXPECT_EQ(r.out.substr(r.out.size() - tail.size()), tail);
    EXPECT_EQ(requests().size(), 1u);
}

TEST_F(HostE2E, AddSendsTheSampleWithItsLatin1Texts)
{
    const RunResult r = host("add 1\n!sleep 1000\n");
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "CmdAddContact\n");
    EXPECT_EQ(r.err, "") << "the acknowledgement is taken quietly";
    const std::vector<Json::Value> sent = requests();
    ASSERT_EQ(sent.size(), 1u);
    const Json::Value& data = sent[0]["params"]["data"];
    EXPECT_EQ(sent[0]["params"]["type"].asInt(), 5);
    EXPECT_EQ(data["company"].asString(), "H\xC3\xB6strand");
    EXPECT_EQ(data["lastName"].asString(), "Wefer");
    EXPECT_EQ(data["numbers"][0]["number"].asString(), "011122233344");
}

TEST(HostStart, FailuresAreClearAndNotCrashes)
{
    TempDir dir;
    RunResult r = runProgram({KIVO_HOST, "--ipc-dir", dir.path() + "/ipc", "--module", dir.path() + "/none.so"},
                             "", 10000);
    EXPECT_EQ(r.exitCode, 3);
    EXPECT_NE(r.err.find("cannot load module"), std::string::npos) << r.err;
    EXPECT_EQ(r.out, "");

    r = runProgram({KIVO_HOST, "--ipc-dir", dir.path() + "/ipc", "--enter", "nothere"}, "", 10000);
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_NE(r.err.find("no console named nothere"), std::string::npos) << r.err;

    r = runProgram({KIVO_HOST, "--timer-unit-us", "x"}, "", 10000);
    EXPECT_EQ(r.exitCode, 2);

    r = runProgram({KIVO_HOST, "--help"}, "", 10000);
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_NE(r.out.find("--timer-unit-us"), std::string::npos);
}

}  // namespace
