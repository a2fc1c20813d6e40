#include "PlantedFiles.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <set>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "CException.h"
#include "Posix.h"
#include "Text.h"

namespace plantedfiles {

namespace {

// What the command sets of the shell use.
constexpr std::array<const char*, 20> kNames = {
    "get_bios_id_from_sys.txt", "get_bios_builtdate.txt",
    "r3_flash_bios_log.log",    "r3_Save_bios_fw.log",
    "export_bios_conf.txt",     "import_bios_conf.txt",
    "check_bios_mem_chip.txt",  "clear_cmos_checksum.log",
    "dump_cmos_memory.log",     "validate_bios_id.txt",
    "flash_cmos_mem.txt",       "layoutcfg.txt",
    "save_current_bios.txt",    "flashing_bios.txt",
    "r2_flash_bios.txt",        "ipmifwver.txt",
    "ipmiauxver.txt",           "get_ipmivendor.txt",
    "get_ipmi_id.txt",          "ipmi_flash_log.log"};

constexpr std::array<const char*, 3> kProtections = {"protected_symlinks", "protected_hardlinks",
                                                     "protected_regular"};

constexpr std::string_view kPrefix = "/var/tmp/";
constexpr char kNameCharacters[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-+@%,:=";

// The names behind ">", and behind "tee", in the line.
std::set<std::string> outputsOf(const std::string& line) {
    std::set<std::string> names;
    for (std::size_t at = line.find(kPrefix); at != std::string::npos;
         at = line.find(kPrefix, at + 1)) {
        const std::size_t before =
            at == 0 ? std::string::npos : line.find_last_not_of(" \"'", at - 1);
        if (before == std::string::npos) {
            continue;
        }
        const std::string_view front = std::string_view(line).substr(0, before + 1);
        const bool isTee = front.size() >= 3 && front.substr(front.size() - 3) == "tee";
        if (front.back() != '>' && !isTee) {
            continue;
        }
        const std::size_t from = at + kPrefix.size();
        const std::size_t to = line.find_first_not_of(kNameCharacters, from);
        const std::string name =
            line.substr(from, to == std::string::npos ? std::string::npos : to - from);
        if (!name.empty() && name != "." && name != "..") {
            names.insert(name);
        }
    }
    return names;
}

bool isOurs(const struct stat& status) {
    return S_ISREG(status.st_mode) && status.st_nlink == 1 &&
           (status.st_uid == 0 || status.st_uid == ::geteuid()) &&
           (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

const char* kindOf(const struct stat& status) {
    if (S_ISLNK(status.st_mode)) {
        return "a symbolic link";
    }
    if (S_ISDIR(status.st_mode)) {
        return "a directory";
    }
    if (!S_ISREG(status.st_mode)) {
        return "no regular file";
    }
    return status.st_nlink > 1 ? "a file with several names" : "a file that others could write";
}

// A directory goes aside under a name that nobody uses: what is in it is its owner's.
bool moveAway(int directory, const std::string& name) {
    const std::string aside = ".kelnode-removed-" + std::to_string(::getpid()) + "-" + name;
    return ::unlinkat(directory, name.c_str(), AT_REMOVEDIR) == 0 ||
           ::renameat(directory, name.c_str(), directory, aside.c_str()) == 0;
}

// Empty when the name is free or holds a file of ours; otherwise why it could not be freed.
std::string freeName(int directory, const std::string& name,
                     const std::function<void(const std::string&)>& say) {
    struct stat status {};
    if (::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 || isOurs(status)) {
        return "";
    }
    const std::string path = Text::printable(std::string(kPrefix) + name);
    const bool removed = S_ISDIR(status.st_mode) ? moveAway(directory, name)
                                                 : ::unlinkat(directory, name.c_str(), 0) == 0;
    if (!removed && errno != ENOENT) {
        return path + " is " + kindOf(status) + " and cannot be removed: " + std::strerror(errno);
    }
    say(path + " was " + kindOf(status) + " of the user " + std::to_string(status.st_uid) +
        " and is removed");
    return "";
}

bool isOff(const std::string& protection) {
    const Posix::File file = Posix::openFile("/proc/sys/fs/" + protection, "re");
    return file && std::fgetc(file.get()) == '0';
}

}  // namespace

void remove(const std::string& line, const std::function<void(const std::string&)>& say) {
    const UniqueFd directory = Posix::open(kDirectory, O_PATH | O_DIRECTORY);
    if (!directory) {
        return;
    }
    const std::set<std::string> outputs = outputsOf(line);
    std::set<std::string> names(kNames.begin(), kNames.end());
    names.insert(outputs.begin(), outputs.end());
    for (const std::string& name : names) {
        const std::string fault = freeName(directory.get(), name, say);
        if (!fault.empty() && outputs.count(name) != 0) {
            throw CException(fault);
        }
    }
}

std::list<Protection> protectionsThatAreOff() {
    std::list<Protection> off;
    for (const char* const protection : kProtections) {
        if (isOff(protection)) {
            const std::string name = std::string("fs.") + protection;
            off.push_back({name, "sysctl -w " + name + "=1"});
        }
    }
    return off;
}

std::list<std::string> missingProtection() {
    std::list<std::string> missing;
    for (const Protection& off : protectionsThatAreOff()) {
        missing.push_back(off.name +
                          " is off: users of this machine can trick root with links and files "
                          "below /var/tmp; " +
                          off.remedy);
    }
    return missing;
}

}  // namespace plantedfiles
