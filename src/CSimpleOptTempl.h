#pragma once

#include <string>

// A small table-driven option scanner over an argument vector. It walks the vector once; words that
// are no option of the table are passed over, so that options and plain words may stand in any
// order. Neither the vector nor the table is owned or changed; both must outlive the scanner.
//
//     const CSimpleOptTempl<char>::Option table[] = {
//         {0, "-n", CSimpleOptTempl<char>::kRequiredSeparate},
//         CSimpleOptTempl<char>::endOfTable()};
//     CSimpleOptTempl<char> scanner(argc, argv, table);
//     while (scanner.next()) { if (scanner.lastError() == scanner.kSuccess) ... }
template <typename Character>
class CSimpleOptTempl {
public:
    enum ArgumentType {
        kNone,              // stands alone
        kRequiredSeparate,  // takes the following word, whatever it is
    };
    enum Error {
        kSuccess,
        kArgumentMissing,  // no word follows the option
    };
    struct Option {
        int id;
        const Character* text;  // null ends the table
        ArgumentType argumentType;
    };
    static constexpr Option endOfTable() { return Option{-1, nullptr, kNone}; }

    // arguments[0] is the program's name and is not looked at.
    CSimpleOptTempl(int count, const Character* const* arguments, const Option* options)
        : argumentCount(count), words(arguments), table(options) {}

    // Moves to the next option of the table; false when there is none.
    bool next() {
        for (; position < argumentCount; ++position) {
            const Option* option = find(words[position]);
            if (option != nullptr) {
                take(*option);
                return true;
            }
        }
        return false;
    }

    // About the option found last.
    int optionId() const { return current->id; }
    const Character* optionText() const { return current->text; }
    // Where it stands in the argument vector.
    int optionIndex() const { return index; }
    // Null for an option without an argument and for one whose argument is missing.
    const Character* optionArg() const { return argument; }
    Error lastError() const { return error; }

private:
    const Option* find(const Character* word) const {
        for (const Option* option = table; option->text != nullptr; ++option) {
            if (std::basic_string<Character>(option->text) == word) {
                return option;
            }
        }
        return nullptr;
    }

    void take(const Option& option) {
        current = &option;
        index = position++;
        argument = nullptr;
        error = kSuccess;
        if (option.argumentType == kNone) {
            return;
        }
        if (position < argumentCount) {
            argument = words[position++];
        } else {
            error = kArgumentMissing;
        }
    }

    int argumentCount;
    const Character* const* words;
    const Option* table;
    int position = 1;
    int index = 0;
    const Option* current = nullptr;
    const Character* argument = nullptr;
    Error error = kSuccess;
};
