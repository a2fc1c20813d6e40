#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <unistd.h>

#include "AutoHistoryCommandLineRetriever.h"
#include "CCmdHistory.h"
#include "CException.h"
#include "CShell.h"
#include "CShellExecutionContext.h"
#include "CShellExecutionContextAutoCompleteAdapter.h"
#include "CUtil.h"
#include "ConfigErrorCollector.h"
#include "OutputFilter.h"
#include "ResultMemory.h"
#include "ShellLogging.h"
#include "Terminal.h"

// The interactive loop.

namespace {

constexpr int kExitConfiguration = 2;
constexpr int kExitQuit = 7;
constexpr char kLogProperties[] = "log4cxx.properties";
constexpr char kDown[] = "cd ";
constexpr char kUnreachable[] = "Can not connect to ";
constexpr std::size_t kNodesNamed = 8;

bool startsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

// The node's name in the reader's text about an agent that cannot be reached.
std::string unreachableNode(const std::string& warning) {
    const std::string rest = warning.substr(sizeof kUnreachable - 1);
    return rest.substr(0, rest.rfind(". ("));
}

}  // namespace

// One line of the loop.
struct CShell::Line {
    std::string text;
    bool valid = false;
    bool quit = false;
};

int CShell::runInteractive(std::list<std::string>& words) {
    if (!start(words)) {
        return kExitConfiguration;
    }
    showWarnings();
    std::cout << context->getNodeMap().size() << " node(s) are loaded ....\n"
              << "Log property file: " << installPath << kLogProperties << "\n";
    context->printDeclaration();
    log->info(">>>Enter interactive mode. [" + context->getVersionBuildString() + "]");
    {
        CCmdHistory history;
        CShellExecutionContextAutoCompleteAdapter candidates(context.get());
        AutoHistoryCommandLineRetriever editor(context.get(), &history, &candidates);
        // Keys are read from here on, whatever runs between two lines: what is typed or pasted then
        // is drawn once, by the editor. A command gets the terminal back; see executeJob.
        Terminal::Hold keyMode(Terminal::standard());
        bool ended = false;
        while (!ended) {
            keyMode.renew();
            editor.printCommandPrompt();
            Line line;
            line.text = editor.getCommandLine();
            std::cout << std::endl;
            ended = editor.isEndOfInput();
            // What stands on the line when the input ends still runs; nothing there is a "quit".
            if (!ended || !line.text.empty()) {
                processLine(line, history);
                ended = ended || line.quit;
                resultmemory::giveBack();
            }
            static_cast<void>(std::fflush(stdout));
        }
        log->info("<<<Exit interactive mode.");
        std::cout << "Bye bye." << std::endl;
    }
    return kExitQuit;
}

void CShell::processLine(Line& line, CCmdHistory& history) {
    ConfigErrorCollector errors;
    if (startsWith(line.text, "!") && !recall(line.text, history)) {
        std::cout << "Unknown command: " << line.text << std::endl;
        return;
    }
    if (line.text == "history") {
        history.listIt();
        return;
    }
    if (line.text == "quit") {
        line.quit = true;
        return;
    }
    if (line.text == "cd" || startsWith(line.text, kDown)) {
        line.valid = changeLevel(line.text);
    } else {
        line.valid = runLine(line.text, &errors);
    }
    if (line.valid) {
        history.add(line.text);
        log->info("(" + std::to_string(currentSequence) + ")" + line.text);
    } else {
        std::cout << "Unknown command: " << line.text << "\n" << errors.toString() << std::flush;
    }
}

bool CShell::runLine(const std::string& text, ConfigErrorCollector* errors) {
    getNextCmdSeq();
    const std::unique_ptr<CCommandExecutionContext> request(
        processCommandOption(text, *context, errors));
    if (errors->getSize() == 0) {
        execute(request.get(), errors);
    } else {
        std::cout << errors->toString() << std::flush;
        validateCommand(request.get());
    }
    return request->isValidCommand();
}

bool CShell::recall(std::string& text, CCmdHistory& history) const {
    const long number = std::strtol(text.c_str() + 1, nullptr, 10);
    // Beyond the range of the history's numbers it would wrap round to some other entry.
    if (number < 1 || number > static_cast<long>(std::numeric_limits<unsigned int>::max())) {
        return false;
    }
    const std::string entry = history.getCmd(static_cast<unsigned int>(number));
    if (entry.empty()) {
        return false;
    }
    text = entry;
    std::cout << "Execute \"" << text << "\"" << std::endl;
    return true;
}

bool CShell::changeLevel(const std::string& text) {
    if (text == "cd") {
        context->toRootLevel();
        return true;
    }
    std::string target = text.substr(sizeof kDown - 1);
    CUtil::trim(target);
    try {
        if (target == "..") {
            context->toUpperLevel();
        } else {
            context->toLowerLevel(target);
        }
        return true;
    } catch (const CException& failure) {
        std::cout << failure.getErrMsg() << std::endl;
        return false;
    }
}

void CShell::showWarnings() const {
    if (::isatty(STDERR_FILENO) != 1) {
        return;
    }
    std::string names;
    std::size_t count = 0;
    for (const std::string& warning : startupWarnings) {
        if (!startsWith(warning, kUnreachable)) {
            std::cerr << escapeForTerminal(warning) << "\n";
            continue;
        }
        if (++count <= kNodesNamed) {
            names += (names.empty() ? "" : ", ") + unreachableNode(warning);
        }
    }
    if (count > 0) {
        std::cerr << count << " node(s) can not be reached: " << escapeForTerminal(names)
                  << (count > kNodesNamed ? ", ... (the rest is in the log)" : "") << "\n";
    }
}
