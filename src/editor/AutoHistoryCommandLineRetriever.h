#pragma once

#include <list>
#include <string>

#include "AbstractCommandLineRetriever.h"

class CCmdHistory;
class CShellExecutionContext;
class CShellExecutionContextAutoCompleteAdapter;

// The shell's line editor: prompt, history on Up and Down, completion on Tab. Main thread only.
class AutoHistoryCommandLineRetriever : public AbstractCommandLineRetriever {
public:
    // Owns none of the three; they must outlive the editor.
    AutoHistoryCommandLineRetriever(CShellExecutionContext* newContext, CCmdHistory* newHistory,
                                    CShellExecutionContextAutoCompleteAdapter* newAdapter);
    ~AutoHistoryCommandLineRetriever() override;

    void resetHistoryIndex() override;
    void upPressed() override;
    void downPressed() override;
    void tabPressed() override;

    // "[host/level]$ "
    void printCommandPrompt();
    // "[host/level(n)]$ "
    void printCommandPrompt(unsigned int n);
    // Draws the text and makes it the whole line, with the cursor at its end. Before, the caller
    // must erase what was drawn.
    void adjustCursorIndexAndPosition(std::string text);

protected:
    CShellExecutionContext* executionContext;
    CCmdHistory* history;
    CShellExecutionContextAutoCompleteAdapter* autoCompleteAdapter;
    // 0 while the user does not browse. Otherwise the number of the entry shown; one more than
    // there are entries for the fresh line below the newest, two more after Down on that line.
    unsigned int historyIndex = 0;

private:
    // The parts of the line for completion. The terminal cursor is at its end.
    struct Completion {
        std::string text;  // the whole line
        std::string head;  // before the cursor
        std::string tail;  // from the cursor on
        std::list<std::string> candidates;
        bool levelMode = false;
    };

    void showPrompt(const std::string& behindLevel);
    void eraseLine();
    Completion beginCompletion();
    void completeOne(Completion& completion);
    void completeSeveral(const Completion& completion);
};
