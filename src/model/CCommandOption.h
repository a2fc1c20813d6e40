#pragma once

#include <string>

#include "KelshEnum.h"

// One option of a command. Names are kept without their dashes; either may be empty, and an empty
// name never matches anything. A value type; concurrent reading is safe.
class CCommandOption {
public:
    // compulsoryType is a COMMAND_OPTION_COMPULSORY_TYPE and valueType a COMMAND_OPTION_VALUE_TYPE;
    // any value but 0 counts as set.
    CCommandOption(std::string shortName, std::string longName, int compulsoryType, int valueType,
                   std::string text);
    CCommandOption(std::string shortName, std::string longName, int compulsoryType, int valueType);
    CCommandOption(const CCommandOption&) = default;
    CCommandOption& operator=(const CCommandOption&) = default;
    virtual ~CCommandOption();

    std::string getShortOptName() const;
    std::string getLongOptName() const;
    bool getIsCompulsory() const;
    bool getHasOptValue() const;
    std::string getDescription() const;
    void setDescription(std::string text);

    // True when both have the same non-empty short name or the same non-empty long name.
    bool equal(CCommandOption other) const;
    bool operator==(const CCommandOption& other) const;

    // The help line: "-n, --node: Target node".
    std::string toString() const;

    // The value typed behind this option, up to the next word that begins with "-", trimmed; it may
    // hold blanks. "" when the option takes no value or is not in the line.
    std::string getOptionValue(std::string line) const;

    // Removes every occurrence of this option, and of its value, from the line; returns whether
    // there was one. Afterwards the line has single blanks between its words, and words that hold
    // blanks are in double quotes. Throws CException, leaving the line as it was, when a compulsory
    // option or the value of an option is missing.
    bool processOption(std::string* line) const;

private:
    bool isNamedBy(const std::string& word) const;
    std::string bracketedNames() const;

    std::string shortOptName;
    std::string longOptName;
    bool isCompulsory;
    bool hasOptValue;
    std::string description;
};
