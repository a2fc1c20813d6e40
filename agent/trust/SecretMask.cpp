#include "SecretMask.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <unistd.h>
#include <vector>

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include "CException.h"
#include "FileDigest.h"
#include "Posix.h"
#include "Text.h"
#include "ToolPackage.h"

namespace secretmask {

namespace {

constexpr char kMask[] = "***";
constexpr char kTool[] = "ipmitool";
// Where a path in front of the tool's name may lead: places that only root fills.
constexpr std::array<std::string_view, 7> kToolDirectories = {
    "", "/usr/bin/", "/usr/sbin/", "/usr/local/bin/", "/usr/local/sbin/", "/bin/", "/sbin/"};
constexpr std::array<std::string_view, 4> kSecretVariables = {
    "IPMI_PASSWORD=", "IPMITOOL_PASSWORD=", "IPMI_KGKEY=", "IPMITOOL_KGKEY="};
constexpr std::string_view kLongOption = "--password";
constexpr char kFlags[] = "46hVvcgsEKYaZ";
constexpr char kOptionsWithValue[] = "IoHdPfUpCLAtTmzSlbBekyORND";
constexpr char kSecretOptions[] = "Pky";
// Outside quotes the shell does something with these.
constexpr char kSpecial[] = "\\$`;&|<>()*?[]{}";
// With these only at the beginning of a word.
constexpr char kSpecialInFront[] = "#~";

struct Word {
    std::size_t begin = 0;
    std::size_t end = 0;
    std::string text;  // without quotes
    bool isQuoted = false;
    std::size_t secretAt = std::string::npos;  // in text; npos: nothing is masked
};

bool isOneOf(char c, const char* set) {
    return c != '\0' && std::strchr(set, c) != nullptr;
}

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

bool isControl(char c) {
    const auto value = static_cast<unsigned char>(c);
    return value < 0x20 || value == 0x7f;
}

// One quoted piece, from its quote on. False when it has no end or the shell looks into it.
bool readQuoted(const std::string& line, std::size_t& at, std::string& text) {
    const char quote = line[at++];
    for (; at < line.size() && line[at] != quote; ++at) {
        if (isControl(line[at]) || (quote == '"' && isOneOf(line[at], "$`\\"))) {
            return false;
        }
        text += line[at];
    }
    return at < line.size() && line[at++] == quote;
}

// Plain characters, then at most one quoted piece, which ends the word.
bool readWord(const std::string& line, std::size_t& at, Word& word) {
    word.begin = at;
    for (; at < line.size() && !isBlank(line[at]) && !word.isQuoted;) {
        const char c = line[at];
        if (c == '\'' || c == '"') {
            word.isQuoted = true;
            if (!readQuoted(line, at, word.text)) {
                return false;
            }
        } else if (isControl(c) || isOneOf(c, kSpecial) ||
                   (at == word.begin && isOneOf(c, kSpecialInFront))) {
            return false;
        } else {
            word.text += c;
            ++at;
        }
    }
    word.end = at;
    return at >= line.size() || isBlank(line[at]);
}

// False when the line is not one plain command.
bool readWords(const std::string& line, std::vector<Word>& words) {
    for (std::size_t at = 0; at < line.size();) {
        if (isBlank(line[at])) {
            ++at;
            continue;
        }
        Word word;
        if (!readWord(line, at, word)) {
            return false;
        }
        words.push_back(word);
    }
    return true;
}

// False when it is a variable that is not the tool's own: that could change what runs.
bool takeVariable(Word& word) {
    for (const std::string_view variable : kSecretVariables) {
        if (Text::startsWith(word.text, variable)) {
            word.secretAt = variable.size();
            return true;
        }
    }
    return false;
}

bool isTool(const Word& word) {
    if (word.isQuoted) {
        return false;
    }
    for (const std::string_view directory : kToolDirectories) {
        if (word.text == std::string(directory) + kTool) {
            return true;
        }
    }
    return false;
}

// Marks the secrets among the options from the word on, as the tool itself reads them: each option
// with a value takes what is left of its word, or the next word whatever that looks like. Sets next
// to the first word behind them. False for an option that the tool does not have.
bool takeOptions(std::vector<Word>& words, std::size_t& next) {
    Word& word = words[next++];
    if (Text::startsWith(word.text, "--")) {
        if (word.text == kLongOption && next < words.size()) {
            words[next++].secretAt = 0;
        } else if (Text::startsWith(word.text, std::string(kLongOption) + "=")) {
            word.secretAt = kLongOption.size() + 1;
        } else {
            return false;
        }
        return true;
    }
    for (std::size_t i = 1; i < word.text.size(); ++i) {
        const char option = word.text[i];
        if (isOneOf(option, kFlags)) {
            continue;
        }
        if (!isOneOf(option, kOptionsWithValue)) {
            return false;
        }
        const bool isSecret = isOneOf(option, kSecretOptions);
        if (i + 1 < word.text.size()) {
            word.secretAt = isSecret ? i + 1 : std::string::npos;
        } else if (next < words.size()) {
            words[next].secretAt = isSecret ? 0 : std::string::npos;
            ++next;
        }
        return true;
    }
    return true;
}

// "user set password 2 secret", "user test 2 16 secret", "lan set 1 password secret"
bool isBeforeSecret(const std::vector<std::string>& words) {
    return words.size() == 4 &&
           ((words[0] == "user" && words[1] == "set" && words[2] == "password") ||
            (words[0] == "user" && words[1] == "test") ||
            (words[0] == "lan" && words[1] == "set" && words[3] == "password"));
}

// False when the line is to be shown as it is.
bool markSecrets(std::vector<Word>& words) {
    std::size_t next = 0;
    while (next < words.size() && !isTool(words[next])) {
        if (!takeVariable(words[next++])) {
            return false;
        }
    }
    if (next++ >= words.size()) {
        return false;
    }
    std::vector<std::string> before;
    while (next < words.size()) {
        const std::string& text = words[next].text;
        if (text.size() > 1 && text.front() == '-') {
            if (!takeOptions(words, next)) {
                return false;
            }
            continue;
        }
        if (isBeforeSecret(before)) {
            words[next].secretAt = 0;
        }
        before.push_back(text);
        ++next;
    }
    return true;
}

std::string hmacOf(const std::string& line, const toolpackage::ToolKey& key) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size = 0;
    if (::HMAC(EVP_sha256(), key.data(), static_cast<int>(toolpackage::kKeyBytes),
               reinterpret_cast<const unsigned char*>(line.data()), line.size(), digest.data(),
               &size) == nullptr) {
        throw CException("cannot make an HMAC");
    }
    return FileDigest::toHex(std::string(reinterpret_cast<const char*>(digest.data()), size));
}

}  // namespace

std::string mask(const std::string& commandLine) {
    std::vector<Word> words;
    if (commandLine.find(kTool) == std::string::npos || !readWords(commandLine, words) ||
        !markSecrets(words)) {
        return commandLine;
    }
    std::string masked;
    std::size_t done = 0;
    for (const Word& word : words) {
        if (word.secretAt != std::string::npos) {
            masked.append(commandLine, done, word.begin - done)
                .append(word.text, 0, word.secretAt)
                .append(kMask);
            done = word.end;
        }
    }
    return masked.append(commandLine, done, std::string::npos);
}

std::string Shown::suffix() const {
    return hmac.empty() ? "" : " (HMAC " + hmac + ")";
}

Shown show(const std::string& commandLine, const std::string& keyFile) {
    std::string masked = mask(commandLine);
    if (masked != commandLine) {
        try {
            return {masked, hmacOf(commandLine, toolpackage::ToolKey::load(keyFile))};
        } catch (const CException&) {
            // What could not be proved later must be seen now.
        }
    }
    return {commandLine, ""};
}

void makeKey(const std::string& keyFile) {
    try {
        if (::access(keyFile.c_str(), F_OK) != 0 && errno == ENOENT) {
            // Aside first: a power cut must not leave half a key.
            const std::string fresh = keyFile + ".new";
            if (::unlink(fresh.c_str()) != 0 && errno != ENOENT) {
                Posix::throwErrno("cannot remove " + fresh);
            }
            toolpackage::ToolKey::createFile(fresh);
            if (::rename(fresh.c_str(), keyFile.c_str()) != 0) {
                Posix::throwErrno("cannot make " + keyFile);
            }
        }
        static_cast<void>(toolpackage::ToolKey::load(keyFile));
    } catch (const CException& fault) {
        throw CException("the key for lines with masked passwords: " + fault.getErrMsg());
    }
}

}  // namespace secretmask
