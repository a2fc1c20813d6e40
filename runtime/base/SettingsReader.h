#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

// What is wrong in a file of settings.
struct ConfigFault {
    int line;  // 0: the file as a whole
    std::string text;

    // "kelnode.cfg, line 3: ...", without the line for line 0.
    std::string describe(const std::string& fileName) const;
};

// How the lines of a file of settings are spoken of in faults.
struct SettingLines {
    const char* form;      // "KEY=VALUE"
    const char* repeated;  // " is set a second time"
};

// Reads setting lines from the stream, which stays the caller's, and hands each key and value,
// split at the first "=", to apply, which returns the reason for a refusal or an empty text. A key
// given twice, a line too long and one without "=" are faults; what is at fault is left out.
void readSettings(FILE* stream, const SettingLines& lines,
                  const std::function<std::string(const std::string&, const std::string&)>& apply,
                  std::vector<ConfigFault>& faults);
