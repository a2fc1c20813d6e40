#include "ClassicInterface.h"

#include <iostream>
#include <memory>
#include <unistd.h>

#include "CCommandExecutionContext.h"
#include "CException.h"
#include "CShellExecutionContext.h"
#include "ClassicResults.h"
#include "CommandEngine.h"
#include "CommandSequence.h"
#include "ConfigErrorCollector.h"
#include "InteractiveLoop.h"
#include "PipedLine.h"
#include "RequestParser.h"
#include "ShellLogging.h"

namespace {

constexpr int kExitUnknown = 2;
constexpr int kExitOptionErrors = 7;

}  // namespace

std::list<std::string> ClassicInterface::words(int argc, char** argv) const {
    std::list<std::string> all = argumentsOf(argc, argv);
    all.splice(all.end(), readPipedWords(STDIN_FILENO));
    return all;
}

std::optional<int> ClassicInterface::answer(const std::list<std::string>&) const {
    return std::nullopt;
}

int ClassicInterface::runCommand(std::list<std::string>& words) {
    descend(words);
    const std::string line = RequestParser::joinWords(words);

    ConfigErrorCollector errors;
    int status = kExitOptionErrors;
    const RequestParser parser(shell.context);
    const std::unique_ptr<CCommandExecutionContext> request = parser.parse(line, &errors);
    if (errors.getSize() == 0) {
        ClassicResults results(shell.log);
        status = shell.engine.execute(*request, results, &errors);
    } else {
        std::cout << errors.toString() << std::flush;
        request->setValidCommand(parser.namesUsableCommand(request->getCommandRequest()));
    }
    if (!request->isValidCommand()) {
        std::cout << "Unknown command: " << line << "\n" << errors.toString() << std::flush;
        return kExitUnknown;
    }
    // The number is taken only now, so the dump of a command on the command line is cmd_0.log;
    // docs/compatibility.md.
    const unsigned int number = shell.sequence.next();
    shell.log.info("(" + std::to_string(number) + ")[" + line + "]");
    return status;
}

void ClassicInterface::descend(std::list<std::string>& words) {
    try {
        while (!words.empty()) {
            shell.context.toLowerLevel(words.front());
            words.pop_front();
        }
    } catch (const CException&) {
        // The first word that is no set begins the command.
    }
}

int ClassicInterface::runLoop() {
    return InteractiveLoop(shell.context, shell.engine, shell.sequence, shell.log).run();
}
