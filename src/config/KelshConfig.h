#pragma once

#include <cstdio>
#include <string>

class ConfigErrorCollector;

// The settings of kelsh.cfg, which choose between the two interfaces of the shell and shape the
// modern one. A plain value; made with the settings of a directory without that file.
struct KelshConfig {
    static constexpr char kFileName[] = "kelsh.cfg";

    enum class Interface { kClassic, kModern };
    // Of a command on several nodes: any node counts, or the last one as in the classic interface.
    enum class ExitStatus { kAny, kLast };
    // Where it depends: on a terminal.
    enum class Choice { kAuto, kAlways, kNever };

    Interface interface = Interface::kClassic;
    ExitStatus exitStatus = ExitStatus::kAny;
    Choice fold = Choice::kAuto;
    Choice digest = Choice::kAuto;
    bool adHoc = true;  // whether there is "run"

    // Reads the file. Without one everything stays as it is made. A file that cannot be read, that
    // others can write, or that holds a line or a value that is wrong is an error; an unknown key
    // is a warning. The settings count only when no error was found.
    static KelshConfig read(const std::string& fileName, ConfigErrorCollector* errors);

    // The lines alone. The stream stays the caller's.
    static KelshConfig read(FILE* stream, ConfigErrorCollector* errors);
};
