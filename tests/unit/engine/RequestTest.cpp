// What the shell makes of the words of one command, before anything runs.
#include <memory>

#include <gtest/gtest.h>

#include "CNodeGroup.h"
#include "Observed.h"
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
class RequestOfALine : public EngineFixture {
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

class TypedRequestParts : public RequestOfALine,
                          public ::testing::WithParamInterface<TypedRequest> {};

TEST_P(TypedRequestParts, IsTakenApart) {
    const TypedRequest& row = GetParam();
    const auto made = make(row.line);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(row.request, made->getCommandRequest());
    EXPECT_EQ(row.nodes, namesOf(*made));
    EXPECT_EQ(row.timeOut, made->getTimeOut());
    EXPECT_EQ(row.complaints, errors.toString());
    EXPECT_FALSE(made->isValidCommand());
    EXPECT_FALSE(made->isExecuted());
}

const std::string noNode = "Error! node \"ghost\" does not exist.\n";
const std::string noGroup = "Error! group \"ghost\" does not exist.\n";

INSTANTIATE_TEST_SUITE_P(
    Lines, TypedRequestParts,
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
        TypedRequest{"u -n ghost -g ghost --node -t",
                     "u",
                     {},
                     0,
                     noNode + noGroup + "Error! node \"-t\" does not exist.\n"},
        TypedRequest{"u -t 12ms", "u", {}, 12, ""}, TypedRequest{"u -t 2500", "u", {}, 2500, ""},
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

TEST_F(RequestOfALine, ListOfWordsIsWhatRemains) {
    std::list<std::string> words = {"save", "-n", "a", "file", "-f", "/x", "--timeout", "8"};
    const std::unique_ptr<CCommandExecutionContext> made(
        shell->processCommandOption(words, *context, &errors));
    EXPECT_EQ((Words{"save", "file", "-f", "/x"}), asVector(words));
    EXPECT_EQ("save file -f /x", made->getCommandRequest());
    EXPECT_EQ(8u, made->getTimeOut());
}

TEST_F(RequestOfALine, UnknownNameIsAnErrorWithoutALine) {
    make("u -n ghost");
    EXPECT_EQ(1, errors.getSize());
    EXPECT_EQ(1, errors.getSize(CONFIG_ERROR));
}

struct Validity {
    std::string level;
    std::string line;
    bool valid;
};

void PrintTo(const Validity& row, std::ostream* out) {
    *out << row.level << "> " << row.line;
}

class RequestValidity : public RequestOfALine, public ::testing::WithParamInterface<Validity> {};

TEST_P(RequestValidity, FollowsTheWorkingLevel) {
    context->toRootLevel();
    if (!GetParam().level.empty()) {
        context->toLowerLevel(GetParam().level);
    }
    const auto made = make(GetParam().line);
    made->setValidCommand(!GetParam().valid);
    shell->validateCommand(made.get());
    EXPECT_EQ(GetParam().valid, made->isValidCommand());
}

INSTANTIATE_TEST_SUITE_P(
    Lines, RequestValidity,
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
    EXPECT_EQ((Words{"an", "a", "-n", "-N"}), asVector(words));
    removeOneArg(&words, "n");
    removeOneArg(&words, "-n ");
    removeOneArg(&words, "");
    EXPECT_EQ((Words{"an", "a", "-n", "-N"}), asVector(words));
    std::list<std::string> none;
    removeOneArg(&none, "x");
    EXPECT_TRUE(none.empty());
}

struct ProgramWords {
    Words given;
    Words left;
    std::string nodeFile;
};

void PrintTo(const ProgramWords& row, std::ostream* out) {
    *out << ::testing::PrintToString(row.given);
}

class ProgramOption : public ShellFixture, public ::testing::WithParamInterface<ProgramWords> {};

TEST_P(ProgramOption, NamesTheNodeFile) {
    CShell shell;
    CShellExecutionContext context;
    ConfigErrorCollector errors;
    std::list<std::string> words(GetParam().given.begin(), GetParam().given.end());
    EXPECT_EQ(0, shell.processProgramOption(words, context, &errors));
    EXPECT_EQ(GetParam().left, asVector(words));
    EXPECT_EQ(GetParam().nodeFile, context.getNodeCfgFileName());
    EXPECT_EQ("cmd.cfg", context.getCmdCfgFileName());
    EXPECT_EQ("ssl_master.cfg", context.getSslCfgFileName());
    EXPECT_EQ(0, errors.getSize());
}

INSTANTIATE_TEST_SUITE_P(
    Words, ProgramOption,
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
