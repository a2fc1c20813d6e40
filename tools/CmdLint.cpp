#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <map>
#include <set>
#include <sstream>
#include <utility>

#include "CShellCommandSet.h"
#include "CShellConfigReader.h"
#include "CShellExecutionContext.h"
#include "CUtil.h"
#include "CmdConfigFile.h"
#include "ConfigLineReader.h"
#include "LintReport.h"
#include "RegisteredSets.h"
#include "Text.h"

namespace {

constexpr long kShortestTimeOutMs = 1000;

// What is there before the file is read.
struct BuiltIn {
    std::map<std::string, int> sets;  // name to line 0
    std::set<std::string> basicCommands;
};

// What the shell prints while it takes over a set is found again line by line.
class QuietOutput {
public:
    QuietOutput() : before(std::cout.rdbuf(dropped.rdbuf())) {}
    QuietOutput(const QuietOutput&) = delete;
    QuietOutput& operator=(const QuietOutput&) = delete;
    ~QuietOutput() { std::cout.rdbuf(before); }

private:
    std::ostringstream dropped;
    std::streambuf* before;
};

// Runs the shell's own reader, with the built-in sets registered.
BuiltIn readWithShell(LintReport& report) {
    CShellExecutionContext context{CShellExecutionContext::Temporary()};
    RegisteredSets::addTo(context);
    BuiltIn builtIn;
    for (const CShellCommandSet* set : context.getRootCommandSetList()) {
        builtIn.sets[set->getCommandSetName()] = 0;
    }
    for (const auto& command : context.getBasicCommandSet()->getSupportedCommands()) {
        builtIn.basicCommands.insert(command.first);
    }
    ConfigErrorCollector errors;
    const QuietOutput quiet;
    CShellConfigReader::readCmdConfig(report.getFileName().c_str(), context, &errors);
    report.add(errors);
    return builtIn;
}

bool takesOptions(const std::string& type) {
    return type == "BUILTIN_OPT" || type == "SCRIPT_OPT" || type == "DLLFUNCTION_OPT";
}

class CmdLines {
public:
    CmdLines(LintReport& toReport, BuiltIn builtIn)
        : report(toReport),
          setLines(std::move(builtIn.sets)),
          basicCommands(std::move(builtIn.basicCommands)) {}

    void check() {
        for (const LintLine& line : report.getLines()) {
            if (ConfigLineReader::isSkipped(line.text)) {
                continue;
            }
            if (line.text == "[cmdset]") {
                endCommand();
                endSet();
                section = Section::kSet;
            } else if (line.text == "[cmd]" && section != Section::kNone) {
                endCommand();
                section = Section::kCommand;
            } else {
                checkLine(line);
            }
        }
        endCommand();
        endSet();
    }

private:
    enum class Section { kNone, kSet, kCommand };
    struct Setting {
        int line = 0;
        std::string value;
    };
    using Settings = std::map<std::string, Setting>;
    struct NamedCommand {
        int line = 0;
        bool takesOptions = false;
    };

    void checkLine(const LintLine& line) {
        std::string key;
        std::string value;
        if (!ConfigLineReader::splitSetting(line.text, key, value)) {
            const bool header = line.text.find('[') != std::string::npos;
            report.warning(line.number,
                           "\"" + line.text + "\" is " +
                               (header ? "neither [cmdset] nor [cmd]" : "not KEY=VALUE") +
                               ": the line is ignored");
            return;
        }
        if (section == Section::kNone) {
            report.warning(line.number, "stands before the first [cmdset]: the line is ignored");
            return;
        }
        if (!isKnown(key)) {
            report.warning(line.number, isKnown(Text::trimmed(key))
                                            ? "blanks around \"=\": the line is ignored"
                                            : "unknown key \"" + key + "\": the line is ignored");
            return;
        }
        if (hasOuterBlank(value)) {
            report.warning(line.number, "blanks around the value of \"" + key + "\" belong to it");
        }
        const bool repeatable = key == "example" || key == "option";
        Settings& settings = section == Section::kSet ? set : command;
        const auto inserted = settings.emplace(key, Setting{line.number, value});
        if (!inserted.second && !repeatable) {
            report.warning(line.number, "\"" + key + "\" stands in line " +
                                            std::to_string(inserted.first->second.line) +
                                            " already; this one counts");
            inserted.first->second = {line.number, value};
        }
        checkValue(line.number, key, value);
    }

    bool isKnown(const std::string& key) const {
        return section == Section::kSet ? CmdConfigFile::isSetKey(key)
                                        : CmdConfigFile::isCommandKey(key);
    }

    void checkValue(int line, const std::string& key, const std::string& value) {
        if (key == "timeout") {
            checkTimeOut(line, value);
        } else if (key == "confirmtype") {
            std::string word = value;
            Text::toUpper(word);
            if (word != "NO" && word != "INHERITANCE" && word != "ONCE" && word != "EACH") {
                report.warning(line, "confirmtype \"" + value + "\" is not known and means NO");
            }
            inherits = inherits || (section == Section::kCommand && word == "INHERITANCE");
        } else if (key == "option") {
            checkOption(line, value);
        }
    }

    void checkTimeOut(int line, const std::string& value) {
        constexpr long long kLongest = std::numeric_limits<unsigned int>::max();
        const long long milliseconds = std::min(std::strtoll(value.c_str(), nullptr, 10), kLongest);
        const bool digits = value.find_first_not_of("0123456789") == std::string::npos;
        const std::string meaning = std::to_string(milliseconds) + " milliseconds";
        if (milliseconds == kLongest && value != std::to_string(kLongest)) {
            report.warning(line, "timeout \"" + value + "\" is taken as the longest, " + meaning);
        } else if (milliseconds >= 0 && !digits) {
            report.warning(line, "timeout \"" + value + "\" is taken as " + meaning);
        } else if (milliseconds > 0 && milliseconds < kShortestTimeOutMs) {
            report.warning(line, "timeout is " + meaning + ", less than a second");
        }
    }

    void checkOption(int line, const std::string& value) {
        const std::list<std::string> parts = CShellConfigReader::resolveOptionToken(value);
        if (parts.empty()) {
            return;  // the reader has said so
        }
        const std::string& shortName = parts.front();
        const std::string& longName = *std::next(parts.begin());
        if (shortName == "n" || shortName == "g" || shortName == "t" || longName == "node" ||
            longName == "group" || longName == "timeout") {
            report.warning(line,
                           "-n, -g and -t, --node, --group and --timeout belong to the shell: "
                           "the command never gets this option");
        }
        if (longName == "fold" || longName == "no-fold") {
            report.warning(line, "--" + longName +
                                     " stays the command's: the modern interface cannot be told "
                                     "by it how to show its results");
        }
    }

    void endCommand() {
        const auto option = command.find("option");
        const auto type = command.find("type");
        if (option != command.end() && type != command.end() && type->second.value == "SCRIPT") {
            report.warning(option->second.line,
                           "a command of type SCRIPT takes no options: SCRIPT_OPT does");
        }
        checkMessage(command);
        const auto name = command.find("name");
        if (name != command.end()) {
            noteCommand(name->second, type == command.end() ? "" : type->second.value);
        }
        command.clear();
    }

    void noteCommand(const Setting& name, const std::string& type) {
        std::string neat = name.value;
        CUtil::makeNeatString(&neat);
        if (basicCommands.count(neat) != 0) {
            report.warning(name.line, "\"" + neat +
                                          "\" is a basic command: the shell then finds no command "
                                          "of this set");
        }
        commands.emplace(neat, NamedCommand{name.line, takesOptions(type)});
    }

    // What follows the name of a command with options is read as its options.
    void checkHyphens() {
        for (const auto& [name, named] : commands) {
            for (const auto& [shorter, other] : commands) {
                if (other.takesOptions && name.size() > shorter.size() &&
                    name[shorter.size()] == '-' && Text::startsWith(name, shorter)) {
                    std::string text = "\"";
                    text.append(name).append("\" is read as \"").append(shorter);
                    text.append("\" (line ").append(std::to_string(other.line));
                    text.append(") with options: it is never run");
                    report.warning(named.line, text);
                }
            }
        }
        commands.clear();
    }

    void endSet() {
        const auto type = set.find("confirmtype");
        if (type != set.end() && !inherits && Text::trimmed(type->second.value) != "NO") {
            report.warning(type->second.line,
                           "no command of the set says confirmtype=INHERITANCE: nothing is asked");
        }
        checkMessage(set);
        const auto name = set.find("name");
        if (name != set.end()) {
            checkName(name->second.line, name->second.value);
        }
        checkHyphens();
        set.clear();
        inherits = false;
    }

    // The shell finds the first of two sets only.
    void checkName(int line, const std::string& name) {
        const auto inserted = setLines.emplace(name, line);
        const int first = inserted.first->second;
        if (!inserted.second) {
            report.warning(
                line, "the set \"" + name + "\" " +
                          (first == 0 ? "is built in" : "stands in line " + std::to_string(first)) +
                          " already: only that one is found");
        }
        if (name == "run") {
            report.warning(line,
                           "the set hides \"run\" of the modern interface, which is /run then");
        }
    }

    void checkMessage(const Settings& settings) {
        const auto message = settings.find("confirmmsg");
        if (message != settings.end() && settings.count("confirmtype") == 0) {
            report.warning(message->second.line,
                           "confirmmsg without confirmtype: nothing is asked");
        }
    }

    LintReport& report;
    std::map<std::string, int> setLines;
    std::set<std::string> basicCommands;
    std::map<std::string, NamedCommand> commands;  // of the set, by name
    Section section = Section::kNone;
    Settings set;
    Settings command;
    bool inherits = false;  // a command of the set asks what the set asks
};

}  // namespace

void lintCmdFile(LintReport& report) {
    CmdLines(report, readWithShell(report)).check();
}
