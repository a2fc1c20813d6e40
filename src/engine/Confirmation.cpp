#include "Confirmation.h"

#include <iostream>
#include <utility>

#include "CUtil.h"
#include "Terminal.h"

namespace {

// One key, asked for with the prompt; the newline that the user does not type is printed.
int askKey(const std::string& prompt) {
    // An answer that comes as soon as the question is seen must not be echoed by the terminal.
    const Terminal::Hold keyMode(Terminal::standard());
    std::cout << prompt << std::flush;
    const int key = CUtil::mygetch();
    std::cout << std::endl;
    return key;
}

}  // namespace

Confirmation::Confirmation(std::string commandRequest, std::string message)
    : request(std::move(commandRequest)), question(std::move(message)) {
    CUtil::removeTailQuestionMark(&question);
}

bool Confirmation::askOnce(std::size_t nodes) const {
    const std::string count = std::to_string(nodes) + " node(s)";
    const std::string prompt = question + " for " + count + "? [Yes/No]";
    for (;;) {
        switch (askKey(prompt)) {
            case 'y':
            case 'Y':
                return true;
            case 'n':
            case 'N':
            case -1:
                sayCanceledFor(count);
                return false;
            default:
                break;
        }
    }
}

Confirmation::Answer Confirmation::askForNode(const std::string& name,
                                              std::size_t notStarted) const {
    const std::string prompt = question + " for " + name + "?" + " [Yes/No/Cancel]";
    for (;;) {
        switch (askKey(prompt)) {
            case 'y':
            case 'Y':
                return Answer::kYes;
            case 'n':
            case 'N':
                sayCanceledFor(name);
                return Answer::kNo;
            case 'c':
            case 'C':
            case -1:
                sayCanceledFor(std::to_string(notStarted) + " node(s)");
                return Answer::kCancel;
            default:
                break;
        }
    }
}

void Confirmation::sayCanceledFor(const std::string& what) const {
    std::cout << "Command \"" << request << "\" is canceled for " << what << "." << std::endl;
}
