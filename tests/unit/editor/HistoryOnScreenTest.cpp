// History and completion: keys in, line and screen out.
#include <algorithm>
#include <memory>

#include <gtest/gtest.h>

#include "AutoHistoryCommandLineRetriever.h"
#include "CCmdHistory.h"
#include "CShellCommandSet_Basic.h"
#include "CShellExecutionContext.h"
#include "CShellExecutionContextAutoCompleteAdapter.h"
#include "EditorKeys.h"
#include "Observed.h"
#include "PlainScreen.h"
#include "StandardInput.h"

namespace {

class Editor : public AutoHistoryCommandLineRetriever {
public:
    using AutoHistoryCommandLineRetriever::AutoHistoryCommandLineRetriever;
    using AutoHistoryCommandLineRetriever::cursorIndex;
    using AutoHistoryCommandLineRetriever::cursorPos;
    using AutoHistoryCommandLineRetriever::historyIndex;
    using AutoHistoryCommandLineRetriever::line;
};

// Sets tools (disk, dish below it), tooling, power, alone.
class HistoryOnScreen : public ::testing::Test {
protected:
    HistoryOnScreen() {
        context.setHostName("mst");
        context.addCommandSet(new CShellCommandSet_Basic(&context));
        auto* tools = new CShellCommandSet("tools", "");
        for (const char* name : {"uptime", "cdrom", "history keep"}) {
            tools->addSupportedCommand(new CShellCommand(name, "", "true", SCRIPT, MASTER));
        }
        tools->addChildCommand(new CShellCommandSet("disk", ""));
        tools->addChildCommand(new CShellCommandSet("dish", ""));
        context.addCommandSet(tools);
        for (const char* name : {"tooling", "power", "alone"}) {
            context.addCommandSet(new CShellCommandSet(name, ""));
        }
        editor = std::make_unique<Editor>(&context, &history, &adapter);
    }
    std::string reads(const std::string& symbols) {
        const StandardInput input = StandardInput::holding(keys::typed(symbols));
        std::string text;
        shown = printedBy([&] { text = editor->getCommandLine(); });
        screen = PlainScreen(60, 80);
        screen.take(shown);
        return text;
    }
    long bells() const { return std::count(shown.begin(), shown.end(), '\a'); }

    // Cells blanked with the cursor going back.
    int blanked() const {
        int count = 0;
        for (std::size_t at = 0; (at = shown.find(keys::blankBack, at)) != std::string::npos;
             ++at) {
            ++count;
        }
        return count;
    }

    CShellExecutionContext context{CShellExecutionContext::Temporary{}};
    CCmdHistory history;
    CShellExecutionContextAutoCompleteAdapter adapter{&context};
    std::unique_ptr<Editor> editor;
    std::string shown;
    PlainScreen screen{1, 1};
};

struct Browsing {
    unsigned entries;  // "one", "two and more", "three"
    std::string keys;
    std::string line;
    long bells;
};

void PrintTo(const Browsing& row, std::ostream* out) {
    *out << row.entries << ": " << row.keys;
}

class BrowsingOnScreen : public HistoryOnScreen, public ::testing::WithParamInterface<Browsing> {};

TEST_P(BrowsingOnScreen, ShowsTheEntry) {
    const char* entries[] = {"one", "two and more", "three"};
    for (unsigned i = 0; i < GetParam().entries; ++i) {
        history.add(entries[i]);
    }
    EXPECT_EQ(GetParam().line, reads(GetParam().keys + "<lf>"));
    EXPECT_EQ(GetParam().bells, bells());
    EXPECT_EQ(GetParam().line, screen.text());
    EXPECT_EQ(0u, editor->historyIndex);
}

INSTANTIATE_TEST_SUITE_P(
    Keys, BrowsingOnScreen,
    ::testing::Values(Browsing{0, "<up><up>", "", 2}, Browsing{1, "<up>", "one", 0},
                      Browsing{1, "<up><up>", "one", 1}, Browsing{3, "<up>", "three", 0},

                      Browsing{3, "<up><up><up><up><up>", "one", 2},
                      Browsing{3, "<up><down>", "", 0}, Browsing{3, "<up><down><down>", "", 1},
                      Browsing{3, "<down>", "", 0}, Browsing{3, "<down><down>", "", 1},
                      Browsing{3, "<down><down><down><up>", "three", 2},
                      Browsing{3, "long typed line<left><left><up>", "three", 0},
                      Browsing{3, "<up><up><bs>!", "two and mor!", 0},
                      Browsing{3, "<up><home>X<up>", "two and more", 0},
                      Browsing{3, "<up><home>X<up><down>", "three", 0}));

TEST_F(HistoryOnScreen, WrappedEntryIsErasedCellByCell) {
    history.add("x");
    history.add(keys::times(17, "0123456789"));
    EXPECT_EQ("x", reads("<up><home><up><lf>"));
    EXPECT_EQ(0, screen.row());
    EXPECT_EQ(1, screen.column());
    EXPECT_EQ(170, blanked());
}

struct Completed {
    std::string level;
    std::string keys;
    std::string line;
    long bells;
    std::string offered;  // the row of candidates, empty when none is shown
};

void PrintTo(const Completed& row, std::ostream* out) {
    *out << row.level << "> " << row.keys;
}

class CompletionOnScreen : public HistoryOnScreen,
                           public ::testing::WithParamInterface<Completed> {};

TEST_P(CompletionOnScreen, CompletesTheLine) {
    const Completed& row = GetParam();
    if (!row.level.empty()) {
        context.toLowerLevel(row.level);
    }
    EXPECT_EQ(row.line, reads(row.keys + "<lf>"));
    EXPECT_EQ(row.bells, bells());
    if (row.offered.empty()) {
        EXPECT_EQ(screen.text(), row.line.substr(0, row.line.find_last_not_of(' ') + 1));
    } else {
        EXPECT_EQ(row.offered, screen.line(1));
        const std::string prompt = "[mst" + context.cwlToString() + "]$ ";
        EXPECT_EQ(screen.line(2), (prompt + row.line).substr(0, screen.line(2).size()));
        EXPECT_EQ(screen.line(2).size(), (prompt + row.line).find_last_not_of(' ') + 1);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Keys, CompletionOnScreen,
    ::testing::Values(
        Completed{"", "sa<tab>", "save file", 1, ""}, Completed{"", "qu<tab>x", "quitx", 1, ""},
        Completed{"", "zz<tab>", "zz", 2, ""}, Completed{"", "zz<tab>y", "zzy", 2, ""},
        Completed{"", "quit<tab>", "quit", 1, ""},
        Completed{"", "h<tab>", "h", 1, "help    history"},
        Completed{"", "hi<tab>", "history", 1, ""},
        Completed{"", "li<tab>", "list", 1, "list    list group    list node"},
        Completed{"", "list <tab>n<tab>", "list node", 2, "list group    list node"},
        Completed{"", "?<tab>", "?", 1, "?    ??"},
        Completed{"", "saXYZ<left><left><left><tab>!", "save file!XYZ", 1, ""},
        Completed{"", "zzXYZ<left><left><left><tab>!", "zz!XYZ", 2, ""},
        Completed{"", "liXY<left><left><tab>!", "list!XY", 1, "list    list group    list node"},
        Completed{"", "cd p<tab>", "cd power", 1, ""},
        Completed{"", "cd to<tab>", "cd tool", 1, "tools    tooling"},
        Completed{"", "cd <tab>", "cd ", 1, "tools    tooling    power    alone"},
        Completed{"", "cd<tab>", "cd ", 1, "tools    tooling    power    alone"},
        Completed{"", "cd power<tab>", "cd power", 2, ""},
        Completed{"", "cd pXY<left><left><tab>", "cd power", 1, ""},
        Completed{"", "cd pXY<left><left><tab>!", "cd power!", 1, ""},
        Completed{"", "cd toXY<left><left><tab>!", "cd to!XY", 1, "tools    tooling"},
        Completed{"", "cd  p<tab>", "cd  p", 2, ""}, Completed{"", "up<tab>", "up", 2, ""},
        Completed{"tools", "up<tab>", "uptime", 1, ""},
        Completed{"tools", "hi<tab>", "history", 1, "history keep    history"},
        Completed{"tools", "cd di<tab>", "cd dis", 1, "disk    dish"},
        Completed{"tools", "cd disk<tab>", "cd disk", 2, ""},
        // A command that begins so: the word is completed, no level.
        Completed{"tools", "cdr<tab>", "cdrom", 1, ""},
        Completed{"power", "cd <tab>", "cd ", 2, ""},
        Completed{"power", "sa<tab>", "save file", 1, ""}));

TEST_F(HistoryOnScreen, EmptyLineOffersEverything) {
    EXPECT_EQ("", reads("<tab><lf>"));
    EXPECT_NE(shown.find("\n--help    ?    ??    clear    get file    help    history    list    "
                         "list group    list node    quit    save file\n[mst]$ "),
              std::string::npos)
        << shown;
}

}  // namespace
