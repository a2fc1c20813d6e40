#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

// One fault of a settings file.
struct ConfigFault {
    int line;  // 0: the file as a whole
    std::string text;

    // "kelnode.cfg, line 3: ...", without the line for line 0.
    std::string describe(const std::string& fileName) const;
};

// The words that fault messages use for lines of the file.
struct SettingLines {
    const char* form;      // "KEY=VALUE"
    const char* repeated;  // " is set a second time"
};

// Reads settings from the stream, which the caller closes. Splits each line at the first "=" and
// passes key and value to apply, which returns an empty text or the reason for its refusal. A line
// that is too long, has no "=" or repeats a key is a fault. Faulty lines are left out.
void readSettings(FILE* stream, const SettingLines& lines,
                  const std::function<std::string(const std::string&, const std::string&)>& apply,
                  std::vector<ConfigFault>& faults);
