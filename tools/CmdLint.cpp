#include <cstdlib>
#include <map>
#include <utility>

#include "CShellCommandSet.h"
#include "CShellConfigReader.h"
#include "CShellExecutionContext.h"
#include "CmdConfigFile.h"
#include "ConfigLineReader.h"
#include "LintReport.h"
#include "RegisteredSets.h"
#include "Text.h"

namespace {

constexpr long kShortestTimeOutMs = 1000;

// Runs the shell's own reader, with the built-in sets registered. Leaves their names in taken.
void readWithShell(LintReport& report, std::map<std::string, int>& taken) {
    CShellExecutionContext context{CShellExecutionContext::Temporary()};
    RegisteredSets::addTo(context);
    for (const CShellCommandSet* set : context.getRootCommandSetList()) {
        taken[set->getCommandSetName()] = 0;
    }
    ConfigErrorCollector errors;
    CShellConfigReader::readCmdConfig(report.getFileName().c_str(), context, &errors);
    report.add(errors);
}

class CmdLines {
public:
    // taken: names of sets that exist already.
    CmdLines(LintReport& toReport, std::map<std::string, int> taken)
        : report(toReport), setLines(std::move(taken)) {}

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
        const long milliseconds = std::strtol(value.c_str(), nullptr, 10);
        const bool digits = value.find_first_not_of("0123456789") == std::string::npos;
        const std::string meaning = std::to_string(milliseconds) + " milliseconds";
        if (milliseconds >= 0 && !digits) {
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
    }

    void endCommand() {
        const auto option = command.find("option");
        const auto type = command.find("type");
        if (option != command.end() && type != command.end() && type->second.value == "SCRIPT") {
            report.warning(option->second.line,
                           "a command of type SCRIPT takes no options: SCRIPT_OPT does");
        }
        checkMessage(command);
        command.clear();
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
    Section section = Section::kNone;
    Settings set;
    Settings command;
    bool inherits = false;  // a command of the set asks what the set asks
};

}  // namespace

void lintCmdFile(LintReport& report) {
    std::map<std::string, int> taken;
    readWithShell(report, taken);
    CmdLines(report, std::move(taken)).check();
}
