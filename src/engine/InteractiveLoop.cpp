#include "InteractiveLoop.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <memory>

#include "AutoHistoryCommandLineRetriever.h"
#include "CCmdHistory.h"
#include "CCommandExecutionContext.h"
#include "CException.h"
#include "CShellExecutionContext.h"
#include "CShellExecutionContextAutoCompleteAdapter.h"
#include "CUtil.h"
#include "ClassicResults.h"
#include "CommandEngine.h"
#include "CommandSequence.h"
#include "ConfigErrorCollector.h"
#include "RequestParser.h"
#include "ResultMemory.h"
#include "ShellLogging.h"
#include "Terminal.h"
#include "Text.h"

namespace {

constexpr char kDown[] = "cd ";

}  // namespace

InteractiveLoop::InteractiveLoop(CShellExecutionContext& shellContext, CommandEngine& commandEngine,
                                 CommandSequence& numbers, ShellLogging& shellLog)
    : context(shellContext), engine(commandEngine), sequence(numbers), log(shellLog) {}

int InteractiveLoop::run() {
    log.info(">>>Enter interactive mode. [" + context.getVersionBuildString() + "]");
    CCmdHistory history;
    CShellExecutionContextAutoCompleteAdapter candidates(&context);
    AutoHistoryCommandLineRetriever editor(&context, &history, &candidates);
    // Keys are read from here on, whatever runs between two lines: what is typed or pasted then is
    // drawn once, by the editor. A command gets the terminal back; see the engine.
    Terminal::Hold keyMode(Terminal::standard());
    std::optional<int> status;
    while (!status) {
        keyMode.renew();
        editor.printCommandPrompt();
        std::string text = editor.getCommandLine();
        std::cout << std::endl;
        const bool ended = editor.isEndOfInput();
        // What stands on the line when the input ends still runs; nothing there is the end.
        if (!ended || !text.empty()) {
            status = processLine(text, history);
            resultmemory::giveBack();
        }
        if (ended && !status) {
            status = statusAtEndOfInput();
        }
        static_cast<void>(std::fflush(stdout));
    }
    log.info("<<<Exit interactive mode.");
    std::cout << "Bye bye." << std::endl;
    return *status;
}

std::optional<int> InteractiveLoop::processLine(std::string& text, CCmdHistory& history) {
    if (Text::startsWith(text, "!") && !recall(text, history)) {
        std::cout << "Unknown command: " << text << std::endl;
        return std::nullopt;
    }
    if (text == "history") {
        history.listIt();
        return std::nullopt;
    }
    if (text == "quit") {
        return kQuitStatus;
    }
    ConfigErrorCollector errors;
    const bool moves = text == "cd" || Text::startsWith(text, kDown);
    if (moves ? changeLevel(text) : runLine(text, &errors)) {
        keep(text, history);
    } else {
        std::cout << "Unknown command: " << text << "\n" << errors.toString() << std::flush;
    }
    return std::nullopt;
}

void InteractiveLoop::keep(const std::string& text, CCmdHistory& history) {
    history.add(text);
    log.info("(" + std::to_string(sequence.current()) + ")" + text);
}

bool InteractiveLoop::runLine(const std::string& text, ConfigErrorCollector* errors) {
    sequence.next();
    const RequestParser parser(context);
    const std::unique_ptr<CCommandExecutionContext> request = parser.parse(text, errors);
    if (errors->getSize() == 0) {
        ClassicResults results(log);
        engine.execute(*request, results, errors);
    } else {
        std::cout << errors->toString() << std::flush;
        request->setValidCommand(parser.namesUsableCommand(request->getCommandRequest()));
    }
    return request->isValidCommand();
}

bool InteractiveLoop::recall(std::string& text, CCmdHistory& history) {
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

bool InteractiveLoop::changeLevel(const std::string& text) {
    if (text == "cd") {
        context.toRootLevel();
        return true;
    }
    std::string target = text.substr(sizeof kDown - 1);
    CUtil::trim(target);
    try {
        if (target == "..") {
            context.toUpperLevel();
        } else {
            context.toLowerLevel(target);
        }
        return true;
    } catch (const CException& failure) {
        std::cout << failure.getErrMsg() << std::endl;
        return false;
    }
}
