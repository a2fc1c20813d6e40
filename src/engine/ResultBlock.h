#pragma once

#include <string>

class CResult;

// The block that shows one result: its head, which names the target, and the text below it. The
// result must outlive it.
struct ResultBlock {
    // name: of the node, or "local".
    ResultBlock(const std::string& name, const CResult& result, bool fromNode);

    // Writes it on standard output, for a terminal with the control characters of a node's text
    // made visible. Ctrl+C does not cut it short.
    void print() const;

    // With the control characters of a node's text made visible.
    std::string shown() const { return head + safeText; }

    std::string head;         // with its newline, and the words in front of what is no success
    const std::string& text;  // as it came; the result's own
    std::string safeText;     // the same, but for control characters of a node
};

// Writes the text on standard output as a whole. Ctrl+C does not cut it short.
void printWhole(const std::string& text);
