#include "CShellCommandSet_FlashBIOS.h"

#include <utility>

#include "CNodeSession.h"
#include "CUtil.h"
#include "CommandRun.h"
#include "Console.h"
#include "PathText.h"

namespace {

constexpr int kPlatformX86_64 = 1;
constexpr char kVerified[] = "Verifying flash... VERIFIED.";

void requirePlatform(CShellCommandSet& set, CNodeSession& session) {
    if (set.checkHardwarePlatformOnSlaveNode(&session.agent()) != kPlatformX86_64) {
        throw CommandStopped(EXEC_FAILURE, "Unknown hardware-platform of slave node.");
    }
}

PackagedRun packagedRun(std::list<std::string> packagedFiles, std::string log) {
    PackagedRun run;
    run.packagedFiles = std::move(packagedFiles);
    run.log = std::move(log);
    return run;
}

// The exit code that a run has left in its log, and the log as it was read.
struct ExitCode {
    std::string text;
    std::string code;
};

ExitCode readExitCode(CNodeSession& session, const PackagedRun& run) {
    ExitCode answer;
    answer.text = session.readFile(run.log);
    answer.code = answer.text;
    CUtil::trim(answer.code);
    return answer;
}

// Copies the named file to the node, where it lies under the same path, and returns that path.
std::string stageFile(CNodeSession& session, const TypedLine& typed, const std::string& what) {
    std::string file = typed.path("f");
    const std::string missing = what + ", " + file + ", does not exist!";
    std::string baseName;
    // The program, not a search for "/": that it is run is part of the interface, see
    // docs/compatibility.md.
    CUtil::exec_cmd("basename " + pathtext::shellWord(file), &baseName);
    CUtil::removeTailNewline(&baseName);
    // Such a name is that of a directory, not of an image.
    if (baseName.empty() || baseName == "/" || baseName == "." || baseName == "..") {
        throw CommandStopped(EXEC_FAILURE, missing);
    }
    session.saveFile(file, missing);
    return file;
}

void checkMemoryChip(CNodeSession& session, const TypedLine&, CResult& result) {
    PackagedRun run = packagedRun({"flashrom.x86_64.enc"}, "/var/tmp/check_bios_mem_chip.txt");
    run.arguments = "| grep -i \"found chip\" > " + run.log;
    showAnswer(session, run, result);
}

void clearCmosChecksum(CNodeSession& session, const TypedLine&, CResult& result) {
    PackagedRun run = packagedRun({"romtool.x86_64.enc"}, "/var/tmp/clear_cmos_checksum.log");
    run.arguments = " -C;echo $? > " + run.log;
    run.uninterruptible = true;
    const CResult outcome = session.run(run);
    const ExitCode answer = readExitCode(session, run);
    if (answer.code == "0") {
        // The wording stays; docs/compatibility.md.
        conclude(result, outcome, EXEC_SUCCESS, "Successfully clear the CMOS checksum.");
    } else if (answer.code == "255") {
        conclude(result, outcome, EXEC_FAILURE, "Failed to clear the CMOS checksum.");
    } else {
        conclude(result, outcome, EXEC_FAILURE, answer.text);
    }
}

void dumpCmos(CNodeSession& session, const TypedLine&, CResult& result) {
    PackagedRun run = packagedRun({"romtool.x86_64.enc"}, "/var/tmp/dump_cmos_memory.log");
    run.arguments = " -D > " + run.log;
    showAnswer(session, run, result);
}

void saveCmos(CNodeSession& session, const TypedLine& typed, CResult& result) {
    const std::string file = typed.path("f");
    session.makeDirectoryOf(file);
    PackagedRun run = packagedRun({"romtool.x86_64.enc"}, file);
    run.arguments = "-D > " + pathtext::shellWord(file);
    const CResult outcome = session.run(run);
    if (outcome.getExitCode() != 0) {
        // The file on the node is not the content of the CMOS; it must not replace an older copy on
        // the master.
        conclude(result, outcome, EXEC_FAILURE,
                 "Failed to save the content of the current CMOS memory to " + file + ".\n" +
                     outcome.getRunSummary());
        return;
    }
    const CResult fetched = session.getFile(file);
    conclude(result, outcome, fetched.getRunStatus(), fetched.getRunSummary());
}

void flashCmos(CNodeSession& session, const TypedLine& typed, CResult& result) {
    const std::string file = stageFile(session, typed, "CMOS file");
    PackagedRun run = packagedRun({"romtool.x86_64.enc"}, "/var/tmp/flash_cmos_mem.txt");
    run.arguments = " -F " + pathtext::shellWord(file) + ";echo $? > " + run.log;
    run.uninterruptible = true;
    const CResult outcome = session.run(run);
    if (readExitCode(session, run).code == "0") {
        conclude(result, outcome, EXEC_SUCCESS, "Flash CMOS successfully.");
    } else {
        conclude(result, outcome, EXEC_FAILURE, "Failed to flash CMOS.");
    }
}

void checkLayout(CNodeSession& session, const TypedLine& typed, CResult& result) {
    // A program that could not be executed or died has found nothing.
    constexpr int kFirstCodeOfNoRun = 126;
    const std::string file = stageFile(session, typed, "BIOS FW file");
    PackagedRun run = packagedRun({"romlayout.x86_64.enc"}, "/var/tmp/layoutcfg.txt");
    run.arguments = pathtext::shellWord(file) + " 2>&1 > " + run.log;
    const CResult outcome = session.run(run);
    const std::string layout = session.readFile(run.log);
    if (!layout.empty()) {
        conclude(result, outcome, EXEC_SUCCESS, layout);
    } else if (outcome.getExitCode() < kFirstCodeOfNoRun) {
        conclude(result, outcome, EXEC_SUCCESS, "No detected reserved area!!");
    } else {
        conclude(result, outcome, EXEC_FAILURE, outcome.getRunSummary());
    }
}

void validateId(CNodeSession& session, const TypedLine& typed, CResult& result) {
    const std::string file = stageFile(session, typed, "BIOS ROM file");
    PackagedRun run = packagedRun({"chipprobe.x86_64.enc"}, "/var/tmp/validate_bios_id.txt");
    run.arguments = " -i -f " + pathtext::shellWord(file) + ";echo $? 2>&1 > " + run.log;
    const CResult outcome = session.run(run);
    const ExitCode answer = readExitCode(session, run);
    if (answer.code == "0") {
        conclude(result, outcome, EXEC_SUCCESS, "The BIOS ID is valid.");
    } else if (answer.code == "255") {
        conclude(result, outcome, EXEC_FAILURE, "The BIOS ID is invalid!");
    } else {
        conclude(result, outcome, EXEC_FAILURE, answer.text);
    }
}

PackagedRun romwriteRun(std::string log) {
    return packagedRun({"romwrite.sh.enc", "chipprobe.x86_64.enc", "flashrom.x86_64.enc"},
                       std::move(log));
}

bool isVerified(CNodeSession& session, const PackagedRun& run) {
    return session.readFile(run.log).find(kVerified) != std::string::npos;
}

void saveBios(CNodeSession& session, const TypedLine& typed, CResult& result) {
    const std::string file = typed.path("f");
    session.makeDirectoryOf(file);
    PackagedRun run = romwriteRun("/var/tmp/save_current_bios.txt");
    // The run itself removes the plain copy, while it holds the package: a moment later the copy
    // may be that of another master, who has begun to flash.
    run.arguments = " -y -B " + pathtext::shellWord(file) + " 2>&1 > " + run.log + ";rm -f " +
                    session.shellPath("tools/flashrom.x86_64");
    const CResult outcome = session.run(run);
    if (!isVerified(session, run)) {
        conclude(result, outcome, EXEC_FAILURE, "Failed to save current BIOS into " + file + ".");
        return;
    }
    const CResult fetched = session.getFile(file);
    if (fetched.getRunStatus() != EXEC_SUCCESS) {
        conclude(result, outcome, EXEC_FAILURE,
                 "Failed to save current BIOS into " + file + ".\n" + fetched.getRunSummary());
        return;
    }
    conclude(result, outcome, EXEC_SUCCESS,
             "Successfully save the content of current BIOS into " + file + ".");
}

// Asks chipprobe for the identifier of the staged image; throws unless the board accepts it.
void requireValidId(CNodeSession& session, const std::string& file) {
    PackagedRun run = packagedRun({"chipprobe.x86_64.enc"}, "/var/tmp/r2_flash_bios.txt");
    run.arguments = " -i -f " + pathtext::shellWord(file) + ";echo $? 2>&1 > " + run.log;
    session.run(run);
    const std::string code = readExitCode(session, run).code;
    if (code == "255") {
        throw CommandStopped(EXEC_FAILURE,
                             "The BIOS ID is invalid! Please use correct BIOS ROM file.");
    }
    if (code != "0") {
        throw CommandStopped(EXEC_FAILURE, "Failed to flash BIOS ROM file " + file + ".");
    }
}

void flashBios(CNodeSession& session, const TypedLine& typed, CResult& result) {
    const std::string file = stageFile(session, typed, "BIOS ROM file");
    // Anywhere in the line, file names included; docs/compatibility.md.
    const bool skipId = typed.holds("-x ");
    if (!skipId) {
        requireValidId(session, file);
    }
    PackagedRun run = romwriteRun("/var/tmp/flashing_bios.txt");
    run.arguments =
        (skipId ? " -y -x -F " : " -y -F ") + pathtext::shellWord(file) + " 2>&1 > " + run.log;
    run.uninterruptible = true;
    console::printLine("Please wait for flashing BIOS....[" + session.nodeName() + "]");
    const CResult outcome = session.run(run);
    if (!isVerified(session, run)) {
        conclude(result, outcome, EXEC_FAILURE, "Failed to flash BIOS ROM file " + file + ".");
        return;
    }
    const std::string flashed = "BIOS ROM file " + file + " has been successfully flashed.\n";
    if (typed.holds("-r") || typed.holds("--reboot")) {
        conclude(result, outcome, EXEC_SUCCESS, flashed + "The system is rebooting");
        session.reboot();
    } else {
        conclude(result, outcome, EXEC_SUCCESS,
                 flashed + "You must reboot the system for the changes to take effect!");
    }
}

void checkInfo(CNodeSession& session, const TypedLine&, CResult& result) {
    result = session.execute(
        "dmidecode -t bios | grep -i -e "
        "\"Vendor:\\|Version:\\|Release Date:\\|ROM Size:\\|BIOS Revision:\"");
}

const CommandTable& table() {
    static const CommandTable rows = {
        {"check bios memory chip",
         "Check and show the memory chip used for BIOS.",
         BUILTIN,
         SLAVE,
         {},
         30000,
         "",
         "check bios memory chip -n node_0000",
         checkMemoryChip},

        {"clear cmos checksum",
         "Clear the CMOS checksum.",
         BUILTIN,
         SLAVE,
         {},
         30000,
         "Do you really want to clear the CMOS checksum?",
         "clear cmos checksum -n node_0000",
         clearCmosChecksum},

        {"flash cmos memory",
         "Read the content of CMOS memory from a file and flash it",
         BUILTIN_OPT,
         SLAVE,
         {valueOption("f", "file", "The file for flashing the CMOS.")},
         30000,
         "Do you really want to flash the CMOS?",
         "flash cmos memory -f file -n node_0000",
         flashCmos},

        {"check bios layout",
         "Display the layout of the BIOS ROM file.",
         BUILTIN_OPT,
         SLAVE,
         {valueOption("f", "file", "The BIOS ROM file to check.")},
         120000,
         "",
         "check bios layout -f file -n node_0000",
         checkLayout},

        {"save cmos memory",
         "Save the content of the current CMOS memory to file.",
         BUILTIN_OPT,
         SLAVE,
         {valueOption("f", "file", "The file to save the content of the current CMOS memory.")},
         30000,
         "",
         "save cmos memory -f file -n node_0000",
         saveCmos},

        {"validate bios id",
         "Validate the BIOS ID in the BIOS ROM file to see if it is valid to flash on Orvane "
         "mother "
         "board.",
         BUILTIN_OPT,
         SLAVE,
         {valueOption("f", "file", "The BIOS ROM file to validate.")},
         120000,
         "",
         "validate bios id -f -n node_0000",
         validateId},

        {"flash bios fw",
         "Flash the file contents into the BIOS ROM chip.",
         BUILTIN_OPT,
         SLAVE,
         {valueOption("f", "file", "The BIOS ROM file to flash."),
          flagOption("x", "skipid", "Disable Orvane BIOS ID checking during flash."),
          flagOption("r", "reboot", "Reboot system after flash BIOS.")},
         900000,
         "WARNING: This can overwrite your current BIOS and CMOS!\n"
         "Do you really want to flash the BIOS?",
         "flash bios fw -f file -n node_0000",
         flashBios},

        {"dump cmos memory",
         "Dump the content of the current CMOS memory.",
         BUILTIN,
         SLAVE,
         {},
         30000,
         "",
         "dump cmos memory -n node_0000",
         dumpCmos},

        {"save bios fw",
         "Save the current BIOS ROM chip contents to file.",
         BUILTIN_OPT,
         SLAVE,
         {valueOption("f", "file", "The file to save the content of the current BIOS.")},
         300000,
         "",
         "save bios fw -f file -n node_0000",
         saveBios},

        {"check bios info",
         "Check BIOS information.",
         BUILTIN,
         SLAVE,
         {},
         30000,
         "",
         "check bios info -n node_0000",
         checkInfo},
    };
    return rows;
}

}  // namespace

CShellCommandSet_FlashBIOS::CShellCommandSet_FlashBIOS()
    : CShellCommandSet("biosfw", "Commands for BIOS firmware.") {
    addCommands(*this, table());
}

void CShellCommandSet_FlashBIOS::execute(std::string commandLine, CNode* node, CResult& result,
                                         unsigned int timeOutMs) {
    executeOnNode(*this, table(), commandLine, node, result, timeOutMs, requirePlatform);
}
