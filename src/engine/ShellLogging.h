#pragma once

#include <string>

// The shell's two logs: "kelsh" (what the shell does, one line for each command) and "cmdresult"
// (the result blocks). Process-wide, like log4cxx itself; every member may be called from any
// thread once the object exists.
//
// What cannot be written is lost to the log and to nothing else: standard error tells of it, once
// until the log can be written again.
//
// Until configure() is called nothing is logged, nothing is written to standard error and no file
// of the working directory is looked at: log4cxx would otherwise take its configuration, and with
// it the names of the files that a root process writes, from whoever owns that directory.
class ShellLogging {
public:
    ShellLogging();

    // Reads a properties file. A file that cannot be read leaves logging off; log4cxx says so on
    // standard error. Log files are made readable for their owner only.
    void configure(const std::string& propertiesFile);

    // From now on the appender "CMD_RESULT_FILE" of the logger "cmdresult" writes to that file.
    // Nothing happens when no such file appender is declared.
    void pointResultsAt(const std::string& dumpFile);

    void info(const std::string& text);
    void warn(const std::string& text);
    // One result block, bytes unchanged.
    void result(const std::string& block);
};
