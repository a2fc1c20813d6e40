// Plays recorded sessions and compares every screen.
//
// A session is a file of tests/data/sessions:
//   size ROWS COLUMNS        changes the size of the terminal
//   type SYMBOLS             types (see EditorKeys.h), then the screen that follows is awaited:
//   |a row of the screen     from the top, without trailing blanks and empty rows at the end
//   @ROW COLUMN              where the cursor is, both from 0
//   # comment
// KELSH_RECORD_SESSION=FILE plays a file's sizes and keys and prints the file with the screens
// seen; look at every one of them before you keep it.

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <sstream>

#include "ShellOnTerminal.h"
#include "TestPaths.h"

namespace {

struct Step {
    int line = 0;
    std::vector<std::string> comments;
    bool resizes = false;
    int rows = 0;
    int columns = 0;
    std::string symbols;
    std::vector<std::string> screen;
    PtyTerminal::Position cursor;
};

class SessionTest : public ShellOnTerminal {
protected:
    SessionTest() {
        writeFile("shell/node.cfg",
                  "[node]\nn1=02:00:00:00:00:01,127.0.0.1:1\nn2=02:00:00:00:00:02,127.0.0.1:1\n"
                  "[group]\nrack=n1,n2\n");
        writeFile("shell/cmd.cfg",
                  commandFile({{"flash", "echo flashed", "confirmtype=once\n", "SLAVE"},
                               {"reset", "echo reset", "confirmtype=each\n", "SLAVE"},
                               {"fails", "echo on error; exit 3"},
                               {"lines", "printf 'one\\ntwo\\nthree\\n'"}}));
    }

    static std::vector<Step> parse(const std::string& text) {
        std::vector<Step> steps;
        std::vector<std::string> comments;
        std::istringstream file(text);
        std::string line;
        for (int number = 1; std::getline(file, line); ++number) {
            std::istringstream fields(line.substr(std::min<std::size_t>(line.size(), 5)));
            if (line.compare(0, 1, "#") == 0 || line.empty()) {
                comments.push_back(line);
            } else if (line[0] == '|') {
                steps.back().screen.push_back(line.substr(1));
            } else if (line[0] == '@') {
                std::istringstream position(line.substr(1));
                position >> steps.back().cursor.row >> steps.back().cursor.column;
            } else {
                Step step;
                step.line = number;
                step.comments.swap(comments);
                if (line.compare(0, 5, "size ") == 0) {
                    step.resizes = true;
                    fields >> step.rows >> step.columns;
                } else if (line.compare(0, 5, "type ") == 0) {
                    step.symbols = line.substr(5);
                } else {
                    throw std::invalid_argument("line " + std::to_string(number));
                }
                steps.push_back(step);
            }
        }
        return steps;
    }

    // What differs from run to run is replaced by a text of its own.
    std::vector<std::string> screen(const PtyTerminal& terminal) const {
        std::vector<std::string> rows = terminal.rows();
        for (std::string& row : rows) {
            hideTime(row);
            const std::string::size_type path = row.find(directory.path());
            if (path != std::string::npos) {
                row.replace(path, directory.path().size(), "DIRECTORY");
            }
        }
        return rows;
    }

    // "(17ms)" becomes "(#ms)".
    static void hideTime(std::string& row) {
        const std::string::size_type end = row.find("ms)");
        const std::string::size_type open = row.rfind('(', end);
        if (end != std::string::npos && open != std::string::npos && open + 1 < end &&
            row.find_first_not_of("0123456789", open + 1) == end) {
            row.replace(open + 1, end - open - 1, "#");
        }
    }

    static void perform(PtyTerminal& terminal, const Step& step) {
        if (step.resizes) {
            terminal.resize(step.rows, step.columns);
        } else {
            terminal.type(step.symbols);
        }
    }

    void play(const std::string& text) {
        const std::vector<Step> steps = parse(text);
        ASSERT_FALSE(steps.empty());
        ASSERT_TRUE(steps.front().resizes) << "a session begins with the size of the terminal";
        PtyTerminal terminal({program()}, options(steps.front().rows, steps.front().columns));
        for (const Step& step : steps) {
            if (&step != &steps.front()) {
                perform(terminal, step);
            }
            const bool same = terminal.until([&] {
                return screen(terminal) == step.screen && terminal.cursor() == step.cursor;
            });
            if (!same) {
                EXPECT_EQ(step.screen, screen(terminal));
                EXPECT_EQ(step.cursor.row, terminal.cursor().row);
                EXPECT_EQ(step.cursor.column, terminal.cursor().column);
                FAIL() << "at line " << step.line << ": " << step.symbols;
            }
        }
        expectQuit(terminal);
    }

    // Only for a person who records: nobody knows yet what to wait for.
    void record(const std::string& text) {
        const std::vector<Step> steps = parse(text);
        PtyTerminal terminal({program()}, options(steps.front().rows, steps.front().columns));
        for (const Step& step : steps) {
            if (&step != &steps.front()) {
                perform(terminal, step);
            }
            auto quietSince = std::chrono::steady_clock::now();
            std::size_t seen = terminal.received().size();
            terminal.until([&] {
                const auto now = std::chrono::steady_clock::now();
                if (terminal.received().size() != seen) {
                    seen = terminal.received().size();
                    quietSince = now;
                }
                return now - quietSince > std::chrono::milliseconds(700);
            });
            for (const std::string& comment : step.comments) {
                std::cout << comment << '\n';
            }
            if (step.resizes) {
                std::cout << "size " << step.rows << ' ' << step.columns << '\n';
            } else {
                std::cout << "type " << step.symbols << '\n';
            }
            for (const std::string& row : screen(terminal)) {
                std::cout << '|' << row << '\n';
            }
            std::cout << '@' << terminal.cursor().row << ' ' << terminal.cursor().column << '\n';
        }
    }
};

std::string fileContent(const std::string& name) {
    std::ifstream file(name);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

TEST_F(SessionTest, RecordedSessionLooksTheSame) {
    const char* const recorded = std::getenv("KELSH_RECORD_SESSION");
    if (recorded != nullptr) {
        record(fileContent(recorded));
    } else {
        play(fileContent(KELSH_SOURCE_DIR "/tests/data/sessions/administrator"));
    }
}

}  // namespace
