#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "ConfigErrorCollector.h"
#include "ConfigFileLines.h"

using LintLine = ConfigFileLines::Line;

// The findings in one configuration file. The file is read twice: by the shell's reader, whose
// findings come with add(errors), and line by line for what that reader accepts without a message.
class LintReport {
public:
    enum class Level { kWarning, kError };

    // Reads the lines and reports those that are too long or end in a carriage return. False when
    // the file cannot be read; that is reported too.
    bool open(const std::string& fileName);

    const std::string& getFileName() const { return fileName; }
    const std::vector<LintLine>& getLines() const { return lines; }

    // line 0: the file as a whole.
    void error(int line, const std::string& text);
    void warning(int line, const std::string& text);
    // Adds the findings of a reader, with its line numbers converted to those of the file. Warnings
    // of a reader are left out: they are about the nodes, not about the file.
    void add(const ConfigErrorCollector& errors);

    // A warning for each file on the way to this one, itself included, that others could change.
    void warnOfLooseFiles(int line, const std::string& file);

    // In the order of the lines, those of the file as a whole first.
    void print(std::ostream& out) const;
    bool has(Level level) const;

private:
    struct Finding {
        int line;
        Level level;
        std::string text;
    };

    std::string fileName;
    std::vector<LintLine> lines;  // by the reader's numbers, from 1 on
    std::vector<Finding> findings;
};

// The checks of each file. No node is contacted.
void lintNodeFile(LintReport& report);
void lintCmdFile(LintReport& report);
void lintSslFile(LintReport& report);
void lintKelshFile(LintReport& report);
// The private key and the certificates that an SSL file names. certificateLine and keyLine are the
// lines that name them; an empty keyFile means that the certificate file holds the key.
void lintCertificates(LintReport& report, const std::string& certificateFile, int certificateLine,
                      const std::string& keyFile, int keyLine);

// Whether the text begins or ends with a blank or a tab.
bool hasOuterBlank(const std::string& text);
