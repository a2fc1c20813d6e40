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
    AutoHistoryCommandLineRetriever(CShellExecutionContext* executionContext, CCmdHistory* history,
                                    CShellExecutionContextAutoCompleteAdapter* autoCompleteAdapter);
    ~AutoHistoryCommandLineRetriever() override;

    void resetHistoryIndex() override;
    void upPressed() override;
    void downPressed() override;
    void tabPressed() override;

    // "[host/level]$ "
    void printCommandPrompt();
    // "[host/level(n)]$ "
    void printCommandPrompt(unsigned int n);
    // Draws the text and makes it the whole line, with the cursor at its end. The caller has erased
    // what was drawn before.
    void adjustCursorIndexAndPosition(std::string text);

protected:
    CShellExecutionContext* executionContext;
    CCmdHistory* history;
    CShellExecutionContextAutoCompleteAdapter* autoCompleteAdapter;
    unsigned int historyIndex = 0;

private:
    void showPrompt(const std::string& afterLevel);
    void replaceLine(const std::string& text);
    bool isLevelMode(const std::string& text, const std::list<std::string>& candidates) const;
    void complete(std::string head, std::string* tail);
    void listCandidates(const std::list<std::string>& candidates);
};
