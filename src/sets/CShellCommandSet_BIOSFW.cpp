#include "CShellCommandSet_BIOSFW.h"

#include "CNodeSession.h"
#include "CommandRun.h"
#include "Console.h"
#include "PathText.h"

namespace {

constexpr char kPowerWarning[] = "Don't power off the system or remove AC power!";

std::string loadDriver(CNodeSession& session) {
    return "insmod " + session.shellPath("tools/romio.ko") + ";";
}

// "2>&1 >" in this order, here and in the other sets: errors do not go into the file, so what is
// read back is the tool's standard output; docs/compatibility.md.
void getBiosId(CNodeSession& session, const TypedLine&, CResult& result) {
    PackagedRun run;
    run.packagedFiles = {"romutil.enc"};
    run.log = "/var/tmp/get_bios_id_from_sys.txt";
    run.arguments = "-IdFromSystem 2>&1 > " + run.log;
    showAnswer(session, run, result);
}

void getBiosBuiltDate(CNodeSession& session, const TypedLine&, CResult& result) {
    PackagedRun run;
    run.packagedFiles = {"romutil.enc"};
    run.log = "/var/tmp/get_bios_builtdate.txt";
    run.arguments = "-BuiltDateFromSystem 2>&1 > " + run.log;
    showAnswer(session, run, result);
}

// Options are looked for anywhere in the line, file names included, here and for the reboot below;
// docs/compatibility.md.
std::string blockOptions(const TypedLine& typed) {
    std::string options;
    if (typed.holds("-nv") || typed.holds("--nvblock")) {
        options += " -n ";
    }
    if (typed.holds("-b") || typed.holds("--bootblock")) {
        options += " -b ";
    }
    return options;
}

void flashBios(CNodeSession& session, const TypedLine& typed, CResult& result) {
    const std::string file = typed.path("f");
    session.saveFile(file, "BIOS firmware image file \"" + file + "\" does not exist!");

    PackagedRun run;
    run.packagedFiles = {"romflash.enc"};
    run.companionFiles = {"romio.ko"};
    run.preCommand = loadDriver(session);
    run.log = "/var/tmp/r3_flash_bios_log.log";
    run.arguments =
        "-w" + blockOptions(typed) + " " + pathtext::shellWord(file) + " 2>&1 > " + run.log;
    run.uninterruptible = true;
    console::printLine("Please wait for flashing BIOS firmware....\n" + std::string(kPowerWarning) +
                       " [" + session.nodeName() + "]");
    const CResult outcome = session.run(run);

    if (session.readsBack("tail " + run.log + " | grep \"ID not found in file\"", "ID not found")) {
        conclude(result, outcome, EXEC_FAILURE, "ID of bios fw image not found");
        return;
    }
    if (!session.readsBack(
            "cd " + session.shellPath("") + ";tail " + run.log + " | grep \"Writing finished\"",
            "Writing finished")) {
        conclude(result, outcome, EXEC_FAILURE,
                 "Failed to flash BIOS firmware image file " + file + ".");
        return;
    }
    const std::string flashed =
        "BIOS firmware image file " + file + " has been successfully flashed.";
    if (typed.holds("-r") || typed.holds("--reboot")) {
        conclude(result, outcome, EXEC_SUCCESS,
                 flashed + " " + session.nodeName() + " is rebooting....");
        session.reboot();
    } else {
        conclude(result, outcome, EXEC_SUCCESS, flashed + "\n");
    }
}

void saveBios(CNodeSession& session, const TypedLine& typed, CResult& result) {
    const std::string file = typed.path("f");
    session.makeDirectoryOf(file);

    PackagedRun run;
    run.packagedFiles = {"romflash.enc"};
    run.companionFiles = {"romio.ko"};
    run.preCommand = loadDriver(session);
    run.log = "/var/tmp/r3_Save_bios_fw.log";
    run.arguments = "-r " + pathtext::shellWord(file) + " 2>&1 > " + run.log;
    console::printLine("Please wait for saving BIOS firmware....\n" + std::string(kPowerWarning));
    const CResult outcome = session.run(run);

    if (!session.readsBack("tail " + run.log + " | grep \"Reading finished\"",
                           "Reading finished")) {
        // The wording stays; docs/compatibility.md.
        conclude(result, outcome, EXEC_FAILURE,
                 "Failed to saving BIOS firmware image file " + file);
        return;
    }
    const CResult fetched = session.getFile(file);
    if (fetched.getRunStatus() != EXEC_SUCCESS) {
        conclude(result, fetched, EXEC_FAILURE, "Failed to get BIOS firmware....");
        return;
    }
    conclude(result, outcome, EXEC_SUCCESS,
             "BIOS firmware image file " + file + " has been successfully exported.\n");
}

// One of the two forms of the configuration on disk.
struct ConfigurationForm {
    std::string exportArguments;
    std::string importArguments;
    std::list<std::string> files;
};

// The mode is compared exactly: "RAW" is unknown.
ConfigurationForm configurationForm(const TypedLine& typed) {
    const std::string mode = typed.value("m");
    const std::string file = typed.path("f");
    const std::string word = pathtext::shellWord(file);
    if (mode == "raw") {
        const std::string list = pathtext::shellWord(file + ".list");
        return {"/o /c /l " + list + " /n " + word + " /h " + pathtext::shellWord(file + ".hii"),
                "/i /l " + list + " /n " + word + " /q",
                {file, file + ".list", file + ".hii"}};
    }
    if (mode == "script") {
        return {"/o /s " + word + " /q", "/i /s " + word + " /q", {file}};
    }
    throw CommandStopped(EXEC_FAILURE, "command error, unknown option:" + mode);
}

void backupConfig(CNodeSession& session, const TypedLine& typed, CResult& result) {
    const ConfigurationForm form = configurationForm(typed);
    const std::string failure = "Failed to get BIOS configuration....";
    session.makeDirectoryOf(form.files.front());

    PackagedRun run;
    run.packagedFiles = {"SCELNX_64.enc"};
    run.log = "/var/tmp/export_bios_conf.txt";
    run.arguments = form.exportArguments + " 2>&1 | tee " + run.log;
    console::printLine("Please wait for backing up BIOS configuration....");
    const CResult outcome = session.run(run);

    const std::string phrase = "Script file exported successfully";
    if (!session.readsBack("cat " + run.log + " | grep \"" + phrase + "\"", phrase)) {
        conclude(result, outcome, EXEC_FAILURE, failure);
        return;
    }
    std::string fetchedText;
    for (const std::string& file : form.files) {
        const CResult fetched = session.getFile(file);
        if (fetched.getRunStatus() != EXEC_SUCCESS) {
            conclude(result, fetched, EXEC_FAILURE, failure);
            return;
        }
        fetchedText += fetched.getRunSummary();
    }
    conclude(result, outcome, EXEC_SUCCESS, fetchedText);
}

void restoreConfig(CNodeSession& session, const TypedLine& typed, CResult& result) {
    const ConfigurationForm form = configurationForm(typed);
    for (const std::string& file : form.files) {
        session.saveFile(file, "BIOS configuration file does not exist");
    }

    PackagedRun run;
    run.packagedFiles = {"SCELNX_64.enc"};
    run.log = "/var/tmp/import_bios_conf.txt";
    run.arguments = form.importArguments + " 2>&1 | tee " + run.log;
    run.uninterruptible = true;
    console::printLine("Please wait for restoring BIOS configuration....");
    const CResult outcome = session.run(run);

    const std::string phrase = "Script file imported successfully";
    if (session.readsBack("cat " + run.log + " | grep \"" + phrase + "\"", phrase)) {
        conclude(result, outcome, EXEC_SUCCESS,
                 "BIOS configuration file " + typed.path("f") + " is restored.");
    } else {
        conclude(result, outcome, EXEC_FAILURE, "Failed to restore BIOS configuration.");
    }
}

const CommandTable& table() {
    static const CommandTable rows = {
        {"get bios id from system",
         "Get BIOS ID from current system",
         BUILTIN,
         SLAVE,
         {},
         30000,
         "",
         "get bios id from system -n node_0000",
         getBiosId},

        {"get bios built date from system",
         "Get BIOS built date from current system",
         BUILTIN,
         SLAVE,
         {},
         30000,
         "",
         "get bios built date from system -n node_0000",
         getBiosBuiltDate},

        {"flash bios fw",
         "Flash BIOS firmware",
         BUILTIN_OPT,
         SLAVE,
         {valueOption("f", "file", "The BIOS firmware image file"),
          flagOption("nv", "nvblock", "flash nv block when flash BIOS firmware"),
          flagOption("b", "bootblock", "flash boot block when flash BIOS firmware"),
          flagOption("r", "reboot", "reboot system after flash BIOS")},
         900000,
         "Do you really want to flash the BIOS?",
         "flash bios fw -f file -n node_0000",
         flashBios},

        {"save bios fw",
         "Save BIOS firmware",
         BUILTIN_OPT,
         SLAVE,
         {valueOption("f", "file", "The BIOS firmware image file")},
         300000,
         "",
         "save bios fw -f file -n node_0000",
         saveBios},

        {"backup bios config",
         "Backup BIOS configuration",
         BUILTIN_OPT,
         SLAVE,
         {valueOption("f", "file", "The BIOS configuration file"),
          valueOption("m", "mode", "Backup BIOS configuration by raw mode or script mode")},
         300000,
         "",
         "backup bios config -f file -m raw -n node_0000",
         backupConfig},

        {"restore bios config",
         "Restore BIOS configuration to slave node",
         BUILTIN_OPT,
         SLAVE,
         {valueOption("f", "file", "The BIOS Configuration file"),
          valueOption("m", "mode", "Restore BIOS configuration by raw mode or script mode")},
         300000,
         "Do you really want to restore BIOS config?",
         "restore bios config -f file -m raw -n node_0000",
         restoreConfig},
    };
    return rows;
}

}  // namespace

CShellCommandSet_BIOSFW::CShellCommandSet_BIOSFW()
    : CShellCommandSet("r3biosfw", "Commands for BIOS FW.") {
    addCommands(*this, table());
}

void CShellCommandSet_BIOSFW::execute(std::string commandLine, CNode* node, CResult& result,
                                      unsigned int timeOutMs) {
    executeOnNode(*this, table(), commandLine, node, result, timeOutMs);
}
