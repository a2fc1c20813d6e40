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

// One line of the loop.
struct InteractiveLoop::Line {
    std::string text;
    bool valid = false;
    bool quit = false;
};

InteractiveLoop::InteractiveLoop(CShellExecutionContext& shellContext, CommandEngine& commandEngine,
                                 CommandSequence& numbers, ShellLogging& shellLog)
    : context(shellContext), engine(commandEngine), sequence(numbers), log(shellLog) {}

void InteractiveLoop::run() {
    log.info(">>>Enter interactive mode. [" + context.getVersionBuildString() + "]");
    CCmdHistory history;
    CShellExecutionContextAutoCompleteAdapter candidates(&context);
    AutoHistoryCommandLineRetriever editor(&context, &history, &candidates);
    // Keys are read from here on, whatever runs between two lines: what is typed or pasted then is
    // drawn once, by the editor. A command gets the terminal back; see the engine.
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
    log.info("<<<Exit interactive mode.");
    std::cout << "Bye bye." << std::endl;
}

void InteractiveLoop::processLine(Line& line, CCmdHistory& history) {
    ConfigErrorCollector errors;
    if (Text::startsWith(line.text, "!") && !recall(line.text, history)) {
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
    if (line.text == "cd" || Text::startsWith(line.text, kDown)) {
        line.valid = changeLevel(line.text);
    } else {
        line.valid = runLine(line.text, &errors);
    }
    if (line.valid) {
        history.add(line.text);
        log.info("(" + std::to_string(sequence.current()) + ")" + line.text);
    } else {
        std::cout << "Unknown command: " << line.text << "\n" << errors.toString() << std::flush;
    }
}

bool InteractiveLoop::runLine(const std::string& text, ConfigErrorCollector* errors) {
    sequence.next();
    const RequestParser parser(context);
    const std::unique_ptr<CCommandExecutionContext> request = parser.parse(text, errors);
    if (errors->getSize() == 0) {
        engine.execute(*request, errors);
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
