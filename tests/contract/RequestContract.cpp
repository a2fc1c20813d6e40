// What the shell makes of the words of one command, before anything runs.
#include <csignal>
#include <memory>

#include <gtest/gtest.h>

#include "CNodeGroup.h"
#include "Contract.h"
#include "ShellFixture.h"

namespace {

struct TypedRequest {
    std::string line;
    std::string request;
    Words nodes;
    unsigned timeOut;
    std::string complaints;
};

void PrintTo(const TypedRequest& row, std::ostream* out) {
    *out << row.line;
}

// Nodes a, b, c; groups g1 = {a, b}, g2 = {c and g1}, empty.
class RequestContract : public EngineFixture {
protected:
    void SetUp() override {
        EngineFixture::SetUp();
        for (const char* name : {"a", "b", "c"}) {
            context->getNodeMap()[name] = new CNode(name, "02:00:00:00:00:01", "127.0.0.1", 1);
        }
        auto* first = new CNodeGroup("g1");
        first->addNode(context->getNodeMap()["a"]);
        first->addNode(context->getNodeMap()["b"]);
        auto* second = new CNodeGroup("g2");
        second->addNode(context->getNodeMap()["c"]);
        second->addGroup(first);
        for (CNodeGroup* group : {first, second, new CNodeGroup("empty")}) {
            context->getNodeGroupList().push_back(group);
        }
    }

    std::unique_ptr<CCommandExecutionContext> make(const std::string& line) {
        return std::unique_ptr<CCommandExecutionContext>(
            shell->processCommandOption(line, *context, &errors));
    }
    static Words namesOf(const CCommandExecutionContext& made) {
        Words names;
        for (const auto& entry : made.getNodeMap()) {
            EXPECT_EQ(entry.first, entry.second->getName());
            names.push_back(entry.first);
        }
        return names;
    }
};

class TypedRequestContract : public RequestContract,
                             public ::testing::WithParamInterface<TypedRequest> {};

TEST_P(TypedRequestContract, IsTakenApart) {
    const TypedRequest& row = GetParam();
    const auto made = make(row.line);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->getCommandRequest(), row.request);
    EXPECT_EQ(namesOf(*made), row.nodes);
    EXPECT_EQ(made->getTimeOut(), row.timeOut);
    EXPECT_EQ(errors.toString(), row.complaints);
    EXPECT_FALSE(made->isValidCommand());
    EXPECT_FALSE(made->isExecuted());
}

const std::string noNode = "Error! node \"ghost\" does not exist.\n";
const std::string noGroup = "Error! group \"ghost\" does not exist.\n";

INSTANTIATE_TEST_SUITE_P(
    Lines, TypedRequestContract,
    ::testing::Values(
        TypedRequest{"", "", {}, 0, ""}, TypedRequest{"   ", "", {}, 0, ""},
        TypedRequest{"uptime", "uptime", {}, 0, ""},
        TypedRequest{"  list    node  ", "list node", {}, 0, ""},
        TypedRequest{"uptime -n a", "uptime", {"a"}, 0, ""},
        TypedRequest{"-n a uptime", "uptime", {"a"}, 0, ""},
        TypedRequest{"save -n b file -t 77 -f /x", "save file -f /x", {"b"}, 77, ""},
        TypedRequest{"u --node c,a", "u", {"a", "c"}, 0, ""},
        TypedRequest{"u -n a,a,,a", "u", {"a"}, 0, ""},
        TypedRequest{"u -n a -n b", "u", {"a", "b"}, 0, ""},
        TypedRequest{"u -n a, b", "u b", {"a"}, 0, ""},
        TypedRequest{"u -g g1", "u", {"a", "b"}, 0, ""},
        TypedRequest{"u --group g2", "u", {"a", "b", "c"}, 0, ""},
        TypedRequest{"u -g g1,g2 -n c", "u", {"a", "b", "c"}, 0, ""},
        TypedRequest{"u -g empty", "u", {}, 0, ""},
        TypedRequest{"u -g G1", "u", {}, 0, "Error! group \"G1\" does not exist.\n"},
        TypedRequest{"u -n g1", "u", {}, 0, "Error! node \"g1\" does not exist.\n"},
        TypedRequest{"u -n ghost", "u", {}, 0, noNode},
        TypedRequest{"u -n a,ghost,b", "u", {"a", "b"}, 0, noNode},
        TypedRequest{"u -g ghost,g1", "u", {"a", "b"}, 0, noGroup},
        TypedRequest{"u -n ghost -g ghost", "u", {}, 0, noNode + noGroup},
        TypedRequest{
            "u -n ghost -t -1 -g ghost", "u", {}, 0, noNode + "Invalid time out: -1\n" + noGroup},
        TypedRequest{"u -t 2500", "u", {}, 2500, ""},
        TypedRequest{"u --timeout 1 -t 9", "u", {}, 9, ""}, TypedRequest{"u -t 0", "u", {}, 0, ""},
        TypedRequest{"u -t x", "u", {}, 0, ""}, TypedRequest{"u -t 12abc", "u", {}, 12, ""},
        TypedRequest{"u -t 00", "u", {}, 0, "Invalid time out: 00\n"},
        TypedRequest{"u -t abc", "u", {}, 0, "Invalid time out: abc\n"},
        TypedRequest{"u -t -5", "u", {}, 0, "Invalid time out: -5\n"},
        TypedRequest{"u -n", "u -n", {}, 0, ""}, TypedRequest{"u -t", "u -t", {}, 0, ""},
        TypedRequest{"-g", "-g", {}, 0, ""},
        // The value is the following word, whatever it is.
        TypedRequest{"u -n -g g1", "u g1", {}, 0, "Error! node \"-g\" does not exist.\n"},
        // Only whole words are options.
        TypedRequest{"u -na --nodes=a -N a", "u -na --nodes=a -N a", {}, 0, ""}));

TEST_F(RequestContract, ListOfWordsIsWhatRemains) {
    std::list<std::string> words = {"save", "-n", "a", "file", "-f", "/x", "--timeout", "8"};
    const std::unique_ptr<CCommandExecutionContext> made(
        shell->processCommandOption(words, *context, &errors));
    EXPECT_EQ(asVector(words), (Words{"save", "file", "-f", "/x"}));
    EXPECT_EQ(made->getCommandRequest(), "save file -f /x");
    EXPECT_EQ(made->getTimeOut(), 8u);
}

TEST_F(RequestContract, UnknownNameIsAnErrorWithoutALine) {
    make("u -n ghost");
    EXPECT_EQ(errors.getSize(), 1);
    EXPECT_EQ(errors.getSize(CONFIG_ERROR), 1);
}

TEST_F(RequestContract, ANewRequestIsBlankAndCanBecomeSoAgain) {
    CCommandExecutionContext fresh;
    EXPECT_EQ(fresh.getDefaultTimeOut(), 30000u);
    EXPECT_EQ(fresh.getTimeOut(), 0u);
    EXPECT_FALSE(fresh.isExecuted());
    EXPECT_FALSE(fresh.isValidCommand());
    const auto used = make("u -g g2 -t 4");
    used->setExecuted(true);
    used->setValidCommand(true);
    used->reset();
    EXPECT_EQ(used->getCommandRequest(), "");
    EXPECT_TRUE(used->getNodeMap().empty());
    EXPECT_EQ(used->getTimeOut(), 0u);
    EXPECT_EQ(used->getDefaultTimeOut(), 30000u);
    EXPECT_FALSE(used->isExecuted());
    EXPECT_FALSE(used->isValidCommand());
}

struct Validity {
    std::string level;
    std::string line;
    bool valid;
};

void PrintTo(const Validity& row, std::ostream* out) {
    *out << row.level << "> " << row.line;
}

class ValidityContract : public RequestContract, public ::testing::WithParamInterface<Validity> {};

TEST_P(ValidityContract, FollowsTheWorkingLevel) {
    context->toRootLevel();
    if (!GetParam().level.empty()) {
        context->toLowerLevel(GetParam().level);
    }
    const auto made = make(GetParam().line);
    made->setValidCommand(!GetParam().valid);
    shell->validateCommand(made.get());
    EXPECT_EQ(made->isValidCommand(), GetParam().valid);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, ValidityContract,
    ::testing::Values(Validity{"lab", "there -n ghost", true}, Validity{"lab", "there", true},
                      Validity{"lab", "elsewhere -n ghost", false},
                      Validity{"", "there -n ghost", false},
                      Validity{"", "save file -f /x -n ghost", true},
                      Validity{"lab", "save file -f /x -n ghost", true},
                      Validity{"", "list -t abc", true}, Validity{"", "", false},
                      Validity{"lab", "-n ghost", false}, Validity{"", "sav", false}));

TEST(RemoveOneArg, TakesTheFirstWholeWordOnly) {
    std::list<std::string> words = {"an", "-n", "a", "-n", "-N"};
    removeOneArg(&words, "-n");
    EXPECT_EQ(asVector(words), (Words{"an", "a", "-n", "-N"}));
    removeOneArg(&words, "n");
    removeOneArg(&words, "-n ");
    removeOneArg(&words, "");
    EXPECT_EQ(asVector(words), (Words{"an", "a", "-n", "-N"}));
    std::list<std::string> none;
    removeOneArg(&none, "x");
    EXPECT_TRUE(none.empty());
}

TEST(SignalHandler, SpeaksAndReturns) {
    EXPECT_EQ(printedBy([] { signalHandler(SIGINT); }),
              "Do not use Ctrl+C to terminate this program.\n");
    EXPECT_EQ(printedBy([] { signalHandler(SIGUSR1); }), "Catch a signal 10\n");
    EXPECT_EQ(printedBy([] { signalHandler(0); }), "Catch a signal 0\n");
}

struct ProgramWords {
    Words given;
    Words left;
    std::string nodeFile;
};

void PrintTo(const ProgramWords& row, std::ostream* out) {
    *out << ::testing::PrintToString(row.given);
}

class ProgramOptionContract : public ShellFixture,
                              public ::testing::WithParamInterface<ProgramWords> {};

TEST_P(ProgramOptionContract, NamesTheNodeFile) {
    CShell shell;
    CShellExecutionContext context;
    ConfigErrorCollector errors;
    std::list<std::string> words(GetParam().given.begin(), GetParam().given.end());
    EXPECT_EQ(shell.processProgramOption(words, context, &errors), 0);
    EXPECT_EQ(asVector(words), GetParam().left);
    EXPECT_EQ(context.getNodeCfgFileName(), GetParam().nodeFile);
    EXPECT_EQ(context.getCmdCfgFileName(), "cmd.cfg");
    EXPECT_EQ(context.getSslCfgFileName(), "ssl_master.cfg");
    EXPECT_EQ(errors.getSize(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Words, ProgramOptionContract,
    ::testing::Values(ProgramWords{{}, {}, "node.cfg"},
                      ProgramWords{{"-cfg", "x.cfg"}, {}, "x.cfg"},
                      ProgramWords{{"--configuration", "/a/b"}, {}, "/a/b"},
                      ProgramWords{{"list", "-cfg", "x", "node"}, {"list", "node"}, "x"},
                      ProgramWords{{"-cfg", "1", "-cfg", "2", "a"}, {"a"}, "2"},
                      ProgramWords{{"list", "-cfg"}, {"list", "-cfg"}, "node.cfg"},
                      ProgramWords{{"-CFG", "x"}, {"-CFG", "x"}, "node.cfg"},
                      ProgramWords{{"-cfg=x", "--cfg", "y"}, {"-cfg=x", "--cfg", "y"}, "node.cfg"},
                      // The command's own options are none of the program's business.
                      ProgramWords{
                          {"u", "-n", "a", "-t", "5"}, {"u", "-n", "a", "-t", "5"}, "node.cfg"}));

}  // namespace
