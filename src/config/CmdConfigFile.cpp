#include "CmdConfigFile.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "ConfigLineReader.h"

namespace {

template <class Block>
struct Key {
    const char* name;
    std::string Block::*field;
};

constexpr Key<CmdSetBlock> kSetKeys[] = {
    {"name", &CmdSetBlock::name},
    {"description", &CmdSetBlock::description},
    {"confirmtype", &CmdSetBlock::confirmtype},
    {"confirmmsg", &CmdSetBlock::confirmmsg},
    {"timeout", &CmdSetBlock::timeout},
};

constexpr Key<CmdBlock> kCommandKeys[] = {
    {"name", &CmdBlock::name},
    {"description", &CmdBlock::description},
    {"cmd", &CmdBlock::cmd},
    {"cmd32", &CmdBlock::cmd32},
    {"cmd64", &CmdBlock::cmd64},
    {"type", &CmdBlock::type},
    {"destination", &CmdBlock::destination},
    {"confirmtype", &CmdBlock::confirmtype},
    {"confirmmsg", &CmdBlock::confirmmsg},
    {"timeout", &CmdBlock::timeout},
};

template <class Block, std::size_t count>
void store(const Key<Block> (&keys)[count], Block& block, const std::string& key,
           const std::string& value) {
    for (const Key<Block>& known : keys) {
        if (key == known.name) {
            block.*known.field = value;
            return;
        }
    }
}

template <class Block, std::size_t count>
bool isKnown(const Key<Block> (&keys)[count], const std::string& key) {
    return std::any_of(std::begin(keys), std::end(keys),
                       [&](const Key<Block>& known) { return key == known.name; });
}

template <class Block>
Block& openBlock(std::unique_ptr<Block>& block, int line) {
    if (!block) {
        block = std::make_unique<Block>();
        block->line = line;
    }
    return *block;
}

// The sections being read, and those that are complete.
class Collector {
public:
    void openSet() {
        closeSet();
        section = Section::set;
    }

    void openCommand() {
        if (section != Section::none) {
            closeCommand();
            section = Section::command;
        }
    }

    void closeSet() {
        closeCommand();
        if (set) {
            sets.push_back(std::move(set));
        }
    }

    void setting(int line, const std::string& key, const std::string& value) {
        if (section == Section::set) {
            store(kSetKeys, openBlock(set, line), key, value);
        } else if (section == Section::command) {
            commandSetting(openBlock(command, line), key, value);
        }
    }

    std::list<std::unique_ptr<CmdSetBlock>> sets;

private:
    enum class Section { none, set, command };

    void closeCommand() {
        if (command) {
            openBlock(set, command->line).commands.push_back(std::move(command));
        }
    }

    static void commandSetting(CmdBlock& block, const std::string& key, const std::string& value) {
        if (key == "example") {
            block.examples.push_back(value);
        } else if (key == "option") {
            block.option += block.option.empty() ? value : ";;" + value;
        } else {
            store(kCommandKeys, block, key, value);
        }
    }

    Section section = Section::none;
    std::unique_ptr<CmdSetBlock> set;
    std::unique_ptr<CmdBlock> command;
};

}  // namespace

std::list<std::unique_ptr<CmdSetBlock>> CmdConfigFile::read(FILE* stream) {
    Collector collector;
    ConfigLineReader reader(stream);
    std::string line;
    std::string key;
    std::string value;
    while (reader.next(line)) {
        if (ConfigLineReader::isSkipped(line)) {
            continue;
        }
        if (line == "[cmdset]") {
            collector.openSet();
        } else if (line == "[cmd]") {
            collector.openCommand();
        } else if (ConfigLineReader::splitSetting(line, key, value)) {
            collector.setting(reader.lineNumber(), key, value);
        }
    }
    collector.closeSet();
    return std::move(collector.sets);
}

bool CmdConfigFile::isSetKey(const std::string& key) {
    return isKnown(kSetKeys, key);
}

bool CmdConfigFile::isCommandKey(const std::string& key) {
    return key == "example" || key == "option" || isKnown(kCommandKeys, key);
}
