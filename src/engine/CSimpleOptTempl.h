#pragma once

#include <string_view>

// A small table-driven option scanner. It walks an argument vector, whose first element is the
// program name, and stops at each word that equals an option of the table; plain words are passed
// over wherever they stand. It changes nothing and owns nothing: the vector and the table must
// outlive it.
//
//     using Scanner = CSimpleOptTempl<char>;
//     const Scanner::Option kTable[] = {{0, "-cfg", Scanner::kRequiredSeparate},
//                                       {-1, nullptr, Scanner::kNone}};
//     for (Scanner scanner(argc, argv, kTable); scanner.next();) ...
template <typename Char>
class CSimpleOptTempl {
public:
    enum ArgumentType {
        kNone,              // the option stands alone
        kRequiredSeparate,  // its argument is the following word, whatever that is
    };

    enum Error {
        kSuccess,
        kMissingArgument,  // the option is the last word
    };

    // A table ends with the row {-1, nullptr, kNone}.
    struct Option {
        int id;
        const Char* text;
        ArgumentType argument;
    };

    CSimpleOptTempl(int argc, const Char* const* argv, const Option* table)
        : count(argc), words(argv), options(table) {}

    // Goes on to the next option; false when there is none left.
    bool next() {
        while (++position < count) {
            current = find(words[position]);
            if (current != nullptr) {
                takeArgument();
                return true;
            }
        }
        current = nullptr;
        argument = nullptr;
        error = kSuccess;
        return false;
    }

    // About the option at which next() stopped: its id, the word, its argument (null when it has or
    // gets none), and whether it is complete.
    int optionId() const { return current != nullptr ? current->id : -1; }
    const Char* optionText() const { return current != nullptr ? current->text : nullptr; }
    const Char* optionArgument() const { return argument; }
    // Where the option's word stands in the vector.
    int optionIndex() const { return argument != nullptr ? position - 1 : position; }
    Error lastError() const { return error; }

private:
    const Option* find(const Char* word) const {
        if (word == nullptr) {
            return nullptr;
        }
        for (const Option* row = options; row->text != nullptr; ++row) {
            if (std::basic_string_view<Char>(row->text) == word) {
                return row;
            }
        }
        return nullptr;
    }

    void takeArgument() {
        argument = nullptr;
        error = kSuccess;
        if (current->argument == kNone) {
            return;
        }
        if (position + 1 < count && words[position + 1] != nullptr) {
            argument = words[++position];
        } else {
            error = kMissingArgument;
        }
    }

    int count;
    const Char* const* words;
    const Option* options;
    int position = 0;
    const Option* current = nullptr;
    const Char* argument = nullptr;
    Error error = kSuccess;
};
