#pragma once

#include <list>
#include <string>

// Small functions used everywhere. Any thread may call them, but mygetch and getCursorPosition only
// the thread that owns the terminal.
class CUtil {
public:
    CUtil() = delete;

    // Runs a shell command line on this machine and waits for it. Its standard output replaces
    // *output (null drops it); standard error and standard input stay those of the caller.
    // Returns the exit code, 128 + n for a program ended by signal n, or -1 when the shell could
    // not be started (then *output holds the reason). At most 64 MiB of each stream are kept; a
    // line at the end says how much more there was.
    static int exec_cmd(std::string command, std::string* output);
    // The same with standard error captured too. Given one string for both, the two streams are
    // merged in the order in which they were written.
    static int exec_cmd(std::string command, std::string* output, std::string* errorOutput);

    // True when a read on the descriptor would not block: data or end of input is waiting.
    static bool isDataAvailable(int fd);

    // Reads one byte from standard input without echo and without waiting for Enter. Returns -1 at
    // the end of input only; a signal never ends the wait.
    static int mygetch();
    // Asks the terminal for the cursor position, counted from 1; 0, 0 when it does not answer.
    static void getCursorPosition(unsigned int& row, unsigned int& column);

    // Sleeps for the whole time; a signal does not end it.
    static void sleep(unsigned long milliseconds);

    // White space is blank, tab, newline, carriage return, vertical tab and form feed.
    static void trim(std::string& text);
    // Collapses each run of blanks into one.
    static void trimTwoSpace(std::string& text);
    static void removeTailNewline(std::string* text);
    // Removes one trailing "?".
    static void removeTailQuestionMark(std::string* text);
    // Trims, and turns each inner run of white space into one blank.
    static void makeNeatString(std::string* text);
    static void toLower(std::string& text);
    static void toUpper(std::string& text);

    // Splits at any of the separator characters; empty tokens are dropped. A double-quoted stretch
    // is part of one token and loses its quotes; a quote that is never closed is an ordinary
    // character.
    static std::list<std::string> splitForTokens(std::string text, std::string separators);
    // The same, appending to the list. Note the other order of the arguments.
    static void splitForTokens(std::list<std::string>& tokens, std::string separators,
                               std::string text);

    // Whether anything exists under that path on this machine.
    static bool isFileExisted(std::string path);

    // Local time as "YYYYMMDD_hhmmss", for file names.
    static std::string getDateTimeString2();

    // An IPv4 address in dotted decimal (four parts, 0 to 255, no leading zeros) for version 0 or
    // 4; an IPv6 address in any textual form of RFC 4291 for version 6.
    static bool validateIPAddrFormat(std::string address, unsigned char version);
    // Six pairs of hexadecimal digits with the separator between them.
    static bool validateMACaddr(std::string address, std::string separator);
    // An RFC 1123 host name: labels of 1 to 63 letters, digits and inner hyphens, 253 in all.
    static bool validateHostnameFormat(std::string name);
    // A comma list of host names in which each may hold one range, as in node[01-16,20].
    static bool validateHostnameRangeFormat(std::string range);
};
