#pragma once

#include <cstdint>
#include <sstream>
#include <string>

// The size of the terminal, shared by all editors. Written by the SIGWINCH handler, read by the
// editor at each step of the cursor.
extern unsigned short rowNum;
extern unsigned short colNum;

// The line editor: reads one command line key by key and draws it on standard output with ANSI
// cursor sequences. A derived class supplies what Up, Down and Tab do. Main thread only.
//
// Where the cursor wraps is computed as if the line began in the first screen column; the width of
// the prompt is not counted. Every byte of the line counts as one cell.
//
// Everything is written through std::cout and flushed before the editor waits for a key.
class AbstractCommandLineRetriever {
public:
    AbstractCommandLineRetriever() = default;
    AbstractCommandLineRetriever(const AbstractCommandLineRetriever&) = delete;
    AbstractCommandLineRetriever& operator=(const AbstractCommandLineRetriever&) = delete;
    virtual ~AbstractCommandLineRetriever();

    // Called once at the end of every line.
    virtual void resetHistoryIndex();
    virtual void upPressed();
    virtual void downPressed();
    virtual void tabPressed();

    void putUp();
    void putDown();
    void putRight();
    void putLeft();
    void putEnter();
    void putSpace();
    void putBeep();

    // Appends to the line without drawing anything.
    void keyIn(std::string s);
    // Call it when the cursor has just moved one cell right. Moves on to the next screen line where
    // the line wraps. *pos is the column counted across screen lines.
    void moveRightInConsole(unsigned int* pos);
    // Moves the cursor one cell left, from the first column of a wrapped line to the end of the
    // screen line above. Does nothing for null. Not for position 0, which counts as a first column
    // too: nothing is above the line, and *pos wraps round.
    void moveIndexLeftInConsole(unsigned int* pos);
    // Blanks the n cells before the cursor and moves there.
    void erase(int n);
    // Reads the size of the terminal on standard input; 25 rows and 80 columns when it is unknown.
    static void handleWindowSizeChange(int signal);

    // Reads one line and returns it without its line feed, which is not drawn. Installs
    // handleWindowSizeChange for SIGWINCH. At the end of input returns the text typed so far. When
    // the terminal is gone returns nothing, since the user has not confirmed the line.
    std::string getCommandLine();
    // Whether the last line was ended by the end of input and not by a line feed.
    bool isEndOfInput() const { return endOfInput; }

protected:
    bool insertMode = true;
    unsigned int cursorPos = 0;
    std::int64_t cursorIndex = 0;
    std::ostringstream line;

    // The prompt, to draw it again when the stopped shell continues.
    std::string shownPrompt;

    // Makes text the whole content of the line, with the put position at index.
    void setLine(const std::string& text, std::int64_t index);
    // Moves the cursor right over that many characters of the line.
    void moveOver(std::int64_t count);
    // Moves the cursor one cell left, unless it stands at the start.
    void moveLeft();
    // Moves the cursor left over that many characters of the line.
    void moveBackOver(std::int64_t count);

private:
    bool readLine();
    bool keyPressed(int key);
    bool escapePressed();
    bool bracketKeyPressed(int key);
    void letterOPressed(int key);

    void backspacePressed();
    void deletePressed();
    void textPressed(char c);
    void scrollWhenWrappedOnLastRow();

    std::int64_t lineLength();
    std::string restOfLine() const;
    void drawAndReturn(const std::string& cells, unsigned int from, unsigned int to);
    void drawAgain();

    bool endOfInput = false;
};
