#include "ShellFixture.h"

void Gate::open() {
    const std::lock_guard<std::mutex> lock(mutex);
    opened = true;
    changed.notify_all();
}

void Gate::wait() {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [this] { return opened; });
}

ScriptedSet::ScriptedSet(std::string setName)
    : CShellCommandSet(std::move(setName), "For tests.") {}

CShellCommand* ScriptedSet::add(const std::string& commandName, EXECUTE_DESTINATION destination,
                                COMMAND_TYPE type) {
    auto* command = new CShellCommand(commandName, "A command.", "", type, destination);
    addSupportedCommand(command);
    return command;
}

void ScriptedSet::execute(std::string command, CNode* node, CResult& result, unsigned limit) {
    const Call call{command, node != nullptr ? node->getName() : "", limit};
    {
        const std::lock_guard<std::mutex> lock(mutex);
        seen.push_back(call);
    }
    if (behaviour) {
        behaviour(call, result);
    } else {
        result.setRunSummary(command + " on " + (node ? node->getName() : "master"));
    }
}

std::vector<ScriptedSet::Call> ScriptedSet::calls() {
    const std::lock_guard<std::mutex> lock(mutex);
    return seen;
}

void ShellFixture::SetUp() {
    ::setenv("KELSH_PATH", home.path().c_str(), 1);
    put("kelsh_version.cfg", "VERSION=1.2\nBUILD=34\n");
    put("node.cfg", "");
    put("ssl_master.cfg", "");
}

void ShellFixture::TearDown() {
    EXPECT_TRUE(waitFor([] { return CShell::runningWorkers() == 0; }));
}

void ShellFixture::put(const std::string& name, const std::string& text) const {
    std::ofstream(home.file(name)) << text;
}

std::string ShellFixture::content(const std::string& name) const {
    std::ifstream file(home.file(name));
    return std::string(std::istreambuf_iterator<char>(file), {});
}

int ShellFixture::run(CShell& shell, std::vector<std::string> words) {
    words.insert(words.begin(), "kelsh");
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    ::testing::internal::CaptureStdout();
    const int status = shell.run(static_cast<int>(words.size()), arguments.data());
    output = ::testing::internal::GetCapturedStdout();
    return status;
}

int ShellFixture::run(std::vector<std::string> words) {
    CShell shell;
    return run(shell, std::move(words));
}

void EngineFixture::SetUp() {
    ShellFixture::SetUp();
    useShell(std::make_unique<CShell>());
}

void EngineFixture::useShell(std::unique_ptr<CShell> made) {
    shell = std::move(made);
    context = &shell->getExecutionContext();
    context->addCommandSet(new CShellCommandSet_Basic(context));
    set = new ScriptedSet("lab");
    master = set->add("here", MASTER);
    slave = set->add("there", SLAVE);
    context->addCommandSet(set);
    context->toLowerLevel("lab");
}

void EngineFixture::addNodes(int count) {
    for (int i = 1; i <= count; ++i) {
        const std::string name = "n" + std::to_string(i);
        context->getNodeMap()[name] = new CNode(name, "02:00:00:00:00:01", "127.0.0.1", 1);
    }
}

int EngineFixture::execute(const std::string& line) {
    errors.clear();
    request.reset(shell->processCommandOption(line, *context, &errors));
    EXPECT_EQ(0, errors.getSize()) << errors.toString();
    ::testing::internal::CaptureStdout();
    const int status = shell->execute(request.get(), &errors);
    output = ::testing::internal::GetCapturedStdout();
    return status;
}

int EngineFixture::execute(const std::string& line, const std::string& keys) {
    const StandardInput typed = StandardInput::holding(keys);
    return execute(line);
}
