#pragma once

#include <cstdio>
#include <list>
#include <string>

class CNode;
class CShellCommandSet;
class CShellExecutionContext;
class ConfigErrorCollector;

// Reads the shell's configuration files into the execution context, and writes the node file. A
// fault in the content stops no reader: it is recorded in the collector with its line, the faulty
// object is dropped, and reading continues. Nothing is thrown for it. Main thread only.
class CShellConfigReader {
public:
    // Reads the three files that the context names. The SSL file comes first, because reading the
    // node file contacts the agents; its findings are nevertheless recorded last.
    static void readConfig(CShellExecutionContext& context, ConfigErrorCollector* errors);

    // Nodes and groups. Every node's agent is asked for its MAC address, up to 64 at once. An agent
    // that cannot be reached or reports another address is a warning (level 1). A file that cannot
    // be read is an error at line 0.
    static void readNodeConfig(const char* fileName, CShellExecutionContext& context,
                               ConfigErrorCollector* errors);
    // The stream stays the caller's, here and below.
    static void readNodeConfig(FILE* stream, CShellExecutionContext& context,
                               ConfigErrorCollector* errors);

    // Command sets and commands. A file that cannot be opened is no fault.
    static void readCmdConfig(const char* fileName, CShellExecutionContext& context,
                              ConfigErrorCollector* errors);
    static void readCmdConfig(FILE* stream, CShellExecutionContext& context,
                              ConfigErrorCollector* errors);

    // The key and certificate files, into CSSLConfig::getInstance(). All findings have line 0.
    static void readSslConfig(const char* fileName, ConfigErrorCollector* errors);
    static void readSslConfig(FILE* stream, ConfigErrorCollector* errors);

    // Resolves the path "a/b/c" of a set: returns the set a/b and leaves "c" in *name. Null for a
    // name without "/" and when an ancestor does not exist, which is then recorded.
    static CShellCommandSet* checkParentCommandSet(int line, std::string* name,
                                                   CShellExecutionContext& context,
                                                   ConfigErrorCollector* errors);

    // Splits "[-s|--long|CV]description" into short name, long name (both without dashes, empty
    // where the dashes are missing), attributes and description; an empty list when the shape is
    // another.
    static std::list<std::string> resolveOptionToken(std::string token);

    // Adds one node to the file that the context names for nodes. A line that holds the node's
    // address already is left alone, or its MAC corrected. The file is replaced as a whole or not
    // at all; failures go to standard output.
    static void addNodeIntoConfig(CShellExecutionContext& context, CNode* node);
    // Replaces the MAC on the lines that hold the node's name and address.
    static void correctNodeConfig(CShellExecutionContext& context, CNode* node);
};

// The same as CShellConfigReader::resolveOptionToken.
std::list<std::string> resolveOptionToken(std::string token);
