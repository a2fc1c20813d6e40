#pragma once

#include <list>
#include <string>

// The words of the one line that may have been piped into the shell on that descriptor; none when
// nothing was. Only a pipe, a socket or a regular file counts: what waits on a terminal is
// type-ahead for the prompt. A writer that has written nothing yet is given 200 milliseconds.
//
// The line is read byte by byte, so that what follows it stays for whoever reads next.
std::list<std::string> readPipedWords(int descriptor);
