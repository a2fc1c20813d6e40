#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "CNodeGroup.h"
#include "ModernParser.h"
#include "RequestParser.h"
#include "ShellFixture.h"

namespace {

using ::testing::ElementsAre;
using Words = std::list<std::string>;

// A tree of BASIC, tools, tools/disk and lab, and the nodes a, b and c, of which c is in group g.
class ModernParserTest : public ShellFixture {
protected:
    void SetUp() override {
        ShellFixture::SetUp();
        context.addCommandSet(new CShellCommandSet_Basic(&context));
        auto* tools = add("tools", nullptr, "uptime", SCRIPT);
        auto* df = new CShellCommand("df", "Space.", "df", SCRIPT_OPT, SLAVE);
        df->addOption(new CCommandOption("h", "human", 0, 0, "Sizes."));
        df->addOption(new CCommandOption("x", "exclude", 0, 1, "Leave out."));
        tools->addSupportedCommand(df);
        auto* show = new CShellCommand("show", "Shows.", "show", SCRIPT_OPT, MASTER);
        show->addOption(new CCommandOption("", "fold", 0, 0, "Its own."));
        show->addOption(new CCommandOption("f", "", 1, 1, "Must be."));
        tools->addSupportedCommand(show);
        auto* disk = add("disk", tools, "spin up", SCRIPT);
        auto* lab = add("lab", nullptr, "uptime", SCRIPT);
        for (CShellCommandSet* set : {tools, disk, lab}) {
            context.addCommandSet(set);
        }
        for (const char* name : {"a", "b", "c"}) {
            context.getNodeMap()[name] = new CNode(name, "", "");
        }
        auto* group = new CNodeGroup("g");
        group->addNode(context.getNodeMap()["c"]);
        context.getNodeGroupList().push_back(group);
    }

    // The request, or else what is wrong with it.
    std::string parse(const std::string& line) { return parse(ModernParser::split(line)); }
    std::string parse(const Words& words) {
        ConfigErrorCollector errors;
        request = ModernParser(context).parse(words, &errors);
        EXPECT_EQ(request.has_value(), errors.getSize() == 0);
        return request ? request->command.getCommandRequest() : errors.toString();
    }
    std::string nodes() const {
        std::string names;
        for (const auto& entry : request->command.getNodeMap()) {
            names += entry.first;
        }
        return names;
    }

    CShellExecutionContext context{CShellExecutionContext::Temporary{}};
    std::optional<ModernParser::Request> request;

private:
    static CShellCommandSet* add(const char* name, CShellCommandSet* parent, const char* command,
                                 COMMAND_TYPE type) {
        auto* set = new CShellCommandSet(name, "");
        if (parent != nullptr) {
            parent->addChildCommand(set);
        }
        set->addSupportedCommand(new CShellCommand(command, "d", "x", type, SLAVE));
        return set;
    }
};

}  // namespace

TEST_F(ModernParserTest, SetsAreWordsOrPaths) {
    for (const char* line : {"tools uptime", "tools/uptime", "/tools/uptime", "/tools uptime"}) {
        EXPECT_EQ("/tools/uptime", parse(line));
    }
    for (const char* line : {"tools disk spin up", "tools/disk spin up", "tools/disk/spin up"}) {
        EXPECT_EQ("/tools/disk/spin up", parse(line));
    }
}

TEST_F(ModernParserTest, FirstWordIsLookedForHereThenBelowThenFromTheRoot) {
    context.toLowerLevel("tools");
    EXPECT_EQ("/tools/uptime", parse("uptime"));
    EXPECT_EQ("/tools/disk/spin up", parse("disk spin up"));
    EXPECT_EQ("/lab/uptime", parse("lab uptime"));
    EXPECT_EQ("/tools/disk/spin up", parse("tools disk spin up"));
    EXPECT_EQ("list node", parse("list node"));
    context.toLowerLevel("disk");
    EXPECT_EQ("/tools/uptime", parse("tools uptime"));
    EXPECT_EQ("list", parse("list"));
}

TEST_F(ModernParserTest, DispatcherFindsWhatWasParsed) {
    for (const char* level : {"", "tools"}) {
        if (*level != '\0') {
            context.toLowerLevel(level);
        }
        for (const char* line : {"tools uptime", "tools disk spin up", "lab uptime", "list node",
                                 "save file -f /x", "tools df -h -x tmpfs"}) {
            std::string text = parse(line);
            ConfigErrorCollector errors;
            EXPECT_NE(nullptr,
                      context.findExeCommand(context.getPathToWorkingCommandSet(), text, &errors))
                << line << " at /" << level;
        }
    }
}

TEST_F(ModernParserTest, TargetsMayStandAnywhereWithBlanksBehindCommas) {
    EXPECT_EQ("/tools/df -h", parse("-n a, b tools -t 2m df -h --group g"));
    EXPECT_EQ("abc", nodes());
    EXPECT_EQ(120000U, request->command.getTimeOut());
    EXPECT_EQ("/tools/uptime", parse(Words{"tools", "uptime", "--node", "a, b"}));
    EXPECT_EQ("ab", nodes());
    EXPECT_EQ("/tools/uptime", parse(Words{"tools", "uptime", "-n", ""}));
    EXPECT_EQ("", nodes());
}

TEST_F(ModernParserTest, WrongTargetsAreSaidTogether) {
    EXPECT_EQ(
        "Error! node \"x\" does not exist.\nError! node \"y\" does not exist.\n"
        "Error! group \"a\" does not exist.\nInvalid time out: soon\n",
        parse("tools uptime -n x,y -g a -t soon"));
    EXPECT_EQ("A value is missing behind -n\n", parse("tools uptime -n"));
}

TEST_F(ModernParserTest, TimeOutsHaveUnitsAndNothingElse) {
    const auto read = [](const char* text) {
        return static_cast<long>(ModernParser::milliseconds(text).value_or(999));
    };
    EXPECT_EQ(1500, read("1500"));
    EXPECT_EQ(1500, read("1500ms"));
    EXPECT_EQ(5000, read("5s"));
    EXPECT_EQ(120000, read("2m"));
    EXPECT_EQ(3600000, read("1h"));
    EXPECT_EQ(0, read("0"));
    EXPECT_EQ(4294967295L, read("4294967295"));
    for (const char* wrong : {"", "s", "x", "-5", "+5", "5S", "5 s", "5sec", "1.5s", "0x10", "5s ",
                              "4294967296", "1194h", "99999999999999999999"}) {
        EXPECT_FALSE(ModernParser::milliseconds(wrong)) << wrong;
    }
}

TEST_F(ModernParserTest, WrongOptionIsNamedWithTheSynopsis) {
    const std::string synopsis =
        "df [-h|--human] [-x|--exclude VALUE] -n NODES|-g GROUPS [-t TIME]\n\n";
    EXPECT_EQ("df: unknown option -q\n" + synopsis, parse("tools df -h -q"));
    EXPECT_EQ("df: unexpected word now\n" + synopsis, parse("tools df now"));
    EXPECT_EQ("df: a value is missing behind -x\n" + synopsis, parse("tools df -x -h"));
    EXPECT_EQ("df: a value is missing behind --exclude\n" + synopsis, parse("tools df --exclude"));
    EXPECT_EQ("show: option -f is missing\nshow [--fold] -f VALUE\n\n", parse("tools show"));
}

TEST_F(ModernParserTest, MisspeltCommandNamesTheNearest) {
    EXPECT_EQ("Unknown command: tools uptme\nSimilar: uptime\n", parse("tools uptme"));
    EXPECT_EQ("Unknown command: tols uptime\nSimilar: tools\n", parse("tols uptime"));
    EXPECT_EQ("Unknown command: lst node\nSimilar: list, list node\n", parse("lst node"));
    EXPECT_EQ("Unknown command: abracadabra\n", parse("abracadabra"));
    EXPECT_EQ("tools is a set of commands; \"help tools\" shows them.\n", parse("tools"));
}

TEST_F(ModernParserTest, FoldingIsAnOptionUnlessTheCommandHasOneOfThatName) {
    EXPECT_EQ("/tools/df -h", parse("tools df --fold -h"));
    EXPECT_EQ(true, request->fold);
    EXPECT_EQ("/tools/df -h", parse("--no-fold tools df -h"));
    EXPECT_EQ(false, request->fold);
    EXPECT_EQ("/tools/uptime", parse("tools uptime"));
    EXPECT_FALSE(request->fold);
    EXPECT_EQ("/tools/show --fold -f x", parse("tools show --fold -f x"));
    EXPECT_FALSE(request->fold);
}

TEST_F(ModernParserTest, QuotedValueIsOneWord) {
    EXPECT_THAT(ModernParser::split("a  \"b  -c\" d\"e f\" \"g\t"),
                ElementsAre("a", "\"b  -c\"", "d\"e f\"", "\"g"));
    EXPECT_EQ("/tools/df -x \"two  -words\" -h", parse("tools df -x \"two  -words\" -h"));
    EXPECT_EQ("/tools/df -x \"two  -words\"", parse(Words{"tools", "df", "-x", "two  -words"}));
}

TEST_F(ModernParserTest, OptionsEndAtTheFirstWordOfTwoDashes) {
    const auto behind = [](const std::string& line) {
        const auto end = ModernParser::endOfOptions(line);
        return end == std::string::npos ? "none" : line.substr(end);
    };
    EXPECT_EQ("-- a -- b", behind("run -n a -- a -- b"));
    EXPECT_EQ("--", behind("run --"));
    EXPECT_EQ("--\tx", behind("--\tx"));
    EXPECT_EQ("-- c", behind("run \"a -- b\" -- c"));
    EXPECT_EQ("-- b", behind("run \"a -- b")) << "a quote that is never closed is a letter";
    for (const char* line : {"", "run", "run --x", "run x--", "run---", "run \"-- \""}) {
        EXPECT_EQ("none", behind(line)) << line;
    }
}

TEST_F(ModernParserTest, RunTakesTargetsAlone) {
    const auto parseRun = [&](const std::string& line) {
        ConfigErrorCollector errors;
        request = ModernParser(context).parseRun(ModernParser::split(line), &errors);
        return errors.toString();
    };
    EXPECT_EQ("", parseRun("run -n a, b -t 5s --no-fold"));
    EXPECT_EQ("ab", nodes());
    EXPECT_EQ(5000U, request->command.getTimeOut());
    EXPECT_EQ(false, request->fold);
    EXPECT_EQ("Error! node \"x\" does not exist.\n", parseRun("run -n x"));
    EXPECT_EQ(
        "run: unexpected word uptime in front of --\n"
        "run -n NODES|-g GROUPS [-t TIME] -- LINE\n",
        parseRun("run -n a uptime"));
}
