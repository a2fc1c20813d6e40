// Keys typed at the shell's line editor: any bytes, on terminals of any width.

#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "AutoHistoryCommandLineRetriever.h"
#include "CCmdHistory.h"
#include "CShellCommand.h"
#include "CShellCommandSet.h"
#include "CShellExecutionContext.h"
#include "CShellExecutionContextAutoCompleteAdapter.h"
#include "Require.h"
#include "StandardStreams.h"

namespace {

// Checks what must hold between two keys, and lets the width of the terminal change with them.
class CheckedEditor : public AutoHistoryCommandLineRetriever {
public:
    using AutoHistoryCommandLineRetriever::AutoHistoryCommandLineRetriever;

    void upPressed() override {
        AutoHistoryCommandLineRetriever::upPressed();
        check();
        colNum = static_cast<unsigned short>(colNum / 2);
    }
    void downPressed() override {
        AutoHistoryCommandLineRetriever::downPressed();
        check();
        colNum = static_cast<unsigned short>(colNum + 1);
    }
    void tabPressed() override {
        AutoHistoryCommandLineRetriever::tabPressed();
        check();
    }

private:
    void check() {
        require(line.good());
        const std::int64_t put = line.tellp();
        require(put == cursorIndex);
        require(cursorIndex >= 0 && static_cast<std::size_t>(cursorIndex) <= line.str().size());
        require(static_cast<std::int64_t>(cursorPos) == cursorIndex);
        require(historyIndex <= history->size() + 2);
    }
};

struct World {
    World() {
        context.setHostName("master");
        for (const char* name : {"BASIC", "tools", "tooling", "power"}) {
            auto* set = new CShellCommandSet(name, "");
            for (const char* command : {"list", "list node", "list group", "cdrom", "status"}) {
                set->addSupportedCommand(new CShellCommand(
                    command + std::string(name == std::string("BASIC") ? "" : "2"), "", "true",
                    SCRIPT, MASTER));
            }
            context.addCommandSet(set);
        }
        history.add("cd tools");
        history.add(std::string(200, 'x'));
        history.add("");
    }

    UniqueFd nothing{::open("/dev/null", O_WRONLY | O_CLOEXEC)};
    RedirectedFd silence{STDOUT_FILENO, nothing.get()};
    CShellExecutionContext context;
    CCmdHistory history;
    CShellExecutionContextAutoCompleteAdapter adapter{&context};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static World world;
    CheckedEditor editor(&world.context, &world.history, &world.adapter);
    const TypedInput input(std::string(reinterpret_cast<const char*>(data), size));
    do {
        require(editor.getCommandLine().find('\n') == std::string::npos);
    } while (!editor.isEndOfInput());
    return 0;
}
