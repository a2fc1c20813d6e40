#pragma once

#include <string>

// What a command is, where it runs and how it is confirmed. The numbers are fixed: the even command
// types take their name alone, the odd ones take options behind it.
enum COMMAND_TYPE : int {
    BUILTIN = 0,
    BUILTIN_OPT = 1,
    SCRIPT = 2,
    SCRIPT_OPT = 3,
    DLLFUNCTION = 4,
    DLLFUNCTION_OPT = 5,
};

enum EXECUTE_DESTINATION : int {
    MASTER = 0,  // on the machine that runs the shell
    SLAVE = 1,   // on each target node, through its agent
};

enum CONFIRM_TYPE_ENUM : int {
    NO = 0,
    INHERITANCE = 1,  // as the enclosing command set
    ONCE = 2,         // asked once for the whole execution
    EACH = 3,         // asked for each target node
};

enum COMMAND_OPTION_COMPULSORY_TYPE : int {
    OPTION_MAY_BE_OMITTED = 0,
    OPTION_COMPULSORY = 1,
};

enum COMMAND_OPTION_VALUE_TYPE : int {
    OPTION_WITHOUT_VALUE = 0,
    OPTION_WITH_VALUE = 1,
};

// Keywords of the command configuration file.
class KelshEnum {
public:
    KelshEnum() = default;
    ~KelshEnum() = default;

    // "NO", "INHERITANCE", "ONCE" or "EACH" in any case; every other text means NO.
    static CONFIRM_TYPE_ENUM resolveConformType(std::string keyword);
};
