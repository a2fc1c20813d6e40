#include "NodePattern.h"

#include <algorithm>
#include <cstdint>
#include <unordered_set>
#include <utility>

#include "NameFolding.h"
#include "NodeSetError.h"
#include "Text.h"

namespace {

// Every number of so many digits fits into 64 bits.
constexpr std::size_t kMostDigits = 18;
// What is proposed in place of a wrong pattern is to be read by people.
constexpr std::size_t kMostProposed = 1000;
constexpr std::size_t kShownBytes = 200;

struct Range {
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    std::uint64_t step = 1;
    std::size_t width = 0;  // of padded numbers; 0: not padded

    std::uint64_t count() const { return (last - first) / step + 1; }
};

// A stretch of text and the bracket behind it; no ranges: there is none.
struct Part {
    std::string text;
    std::vector<Range> ranges;

    std::uint64_t count() const {
        std::uint64_t sum = ranges.empty() ? 1 : 0;
        for (const Range& range : ranges) {
            // Each is below 10^18: some thousands of them cannot wrap round unnoticed.
            sum = std::min<std::uint64_t>(sum + range.count(), UINT64_C(1) << 62U);
        }
        return sum;
    }
};

std::string numberText(std::uint64_t value, std::size_t width) {
    std::string digits = std::to_string(value);
    if (digits.size() < width) {
        digits.insert(0, width - digits.size(), '0');
    }
    return digits;
}

bool isNumber(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), Text::isDigit);
}

class Parser {
public:
    Parser(std::string_view wholePattern, std::size_t mostNames)
        : pattern(wholePattern), most(mostNames) {}

    std::vector<std::string> names() {
        while (at < pattern.size()) {
            parts.push_back(nextPart());
        }
        if (parts.empty()) {
            fail("a name is missing");
        }
        const std::uint64_t total = checkedCount();
        if (joinedAt != std::string_view::npos) {
            refuseJoined(total);
        }
        return product(total);
    }

private:
    [[noreturn]] void fail(const std::string& reason, const std::string& rightForm = "") const {
        throw NodeSetError(Text::printable(pattern, kShownBytes) + ": " + reason +
                           (rightForm.empty() ? "" : "; write " + Text::printable(rightForm)));
    }

    // The pattern with other text in place of that many bytes.
    std::string with(std::size_t from, std::size_t bytes, const std::string& other) const {
        return std::string(pattern.substr(0, from)) + other +
               std::string(pattern.substr(from + bytes));
    }

    Part nextPart() {
        Part part;
        const bool behindBracket = at > 0;
        const std::size_t begin = at;
        const std::size_t open = std::min(pattern.find('[', at), pattern.size());
        part.text = pattern.substr(begin, open - begin);
        const std::size_t wrong = part.text.find_first_of(",!&^@]/ \t\n\r\v\f");
        if (wrong != std::string::npos) {
            const char c = part.text[wrong];
            fail(c == ']'
                     ? "there is no \"[\" in front of \"]\""
                     : "\"" + Text::printable(std::string(1, c)) + "\" cannot stand in a name");
        }
        const bool joined = part.text.empty() ? open < pattern.size() && behindBracket
                                              : behindBracket && Text::isDigit(part.text.front());
        if (joined && joinedAt == std::string_view::npos) {
            joinedAt = begin;
        }
        at = open;
        if (open < pattern.size()) {
            part.ranges = bracket();
        }
        return part;
    }

    std::vector<Range> bracket() {
        const std::size_t close = pattern.find(']', at);
        if (close == std::string_view::npos) {
            fail("the \"]\" is missing");
        }
        std::vector<Range> ranges;
        std::size_t begin = at + 1;
        for (;;) {
            const std::size_t end = std::min(pattern.find(',', begin), close);
            ranges.push_back(rangeOf(begin, end));
            if (end == close) {
                break;
            }
            begin = end + 1;
        }
        at = close + 1;
        return ranges;
    }

    Range rangeOf(std::size_t begin, std::size_t end) const {
        const std::string_view text = pattern.substr(begin, end - begin);
        if (text.empty()) {
            fail("a number is missing between the brackets");
        }
        const std::size_t slash = text.find('/');
        const std::string_view ends = text.substr(0, slash);
        const std::size_t dash = ends.find('-');
        const std::string_view first = ends.substr(0, dash);
        const std::string_view last =
            dash == std::string_view::npos ? first : ends.substr(dash + 1);
        Range range;
        range.first = valueOf(first, text);
        range.last = valueOf(last, text);
        range.step = slash == std::string_view::npos ? 1 : valueOf(text.substr(slash + 1), text);
        const std::string shown(text);
        if (range.step == 0) {
            fail("the step of " + shown + " is 0", with(begin, text.size(), std::string(ends)));
        }
        if (slash != std::string_view::npos && dash == std::string_view::npos) {
            fail("the step of " + shown + " needs a range",
                 with(begin, text.size(), std::string(first)));
        }
        if (range.first > range.last) {
            fail("the range " + shown + " goes down",
                 with(begin, ends.size(), std::string(last) + "-" + std::string(first)));
        }
        const bool padded =
            (first.size() > 1 && first.front() == '0') || (last.size() > 1 && last.front() == '0');
        if (padded && first.size() != last.size()) {
            const std::size_t width = std::max(first.size(), last.size());
            fail("the ends of the range " + shown + " differ in width",
                 with(begin, ends.size(),
                      numberText(range.first, width) + "-" + numberText(range.last, width)));
        }
        range.width = padded ? first.size() : 0;
        return range;
    }

    std::uint64_t valueOf(std::string_view digits, std::string_view range) const {
        if (!isNumber(digits)) {
            fail("\"" + Text::printable(range) +
                 "\" between the brackets is no number and no range");
        }
        if (digits.size() > kMostDigits) {
            fail("a number of more than " + std::to_string(kMostDigits) + " digits");
        }
        return std::stoull(std::string(digits));
    }

    std::uint64_t checkedCount() const {
        std::uint64_t total = 1;
        for (const Part& part : parts) {
            const std::uint64_t count = part.count();
            if (count > most || total * count > most) {
                fail("more than " + std::to_string(most) + " names");
            }
            total *= count;
        }
        return total;
    }

    // Numbers that touch: some tools join them to one, others do not.
    [[noreturn]] void refuseJoined(std::uint64_t total) const {
        const std::string reason = pattern[joinedAt] == '['
                                       ? "a bracket stands right behind another"
                                       : "digits stand right behind a bracket";
        fail(reason, total > kMostProposed ? "" : foldNames(product(total)));
    }

    std::vector<std::string> product(std::uint64_t total) const {
        std::vector<std::string> found{""};
        found.reserve(static_cast<std::size_t>(total));
        for (const Part& part : parts) {
            std::vector<std::string> longer;
            longer.reserve(static_cast<std::size_t>(found.size() * part.count()));
            for (const std::string& start : found) {
                appendEach(start + part.text, part.ranges, longer);
            }
            found = std::move(longer);
        }
        std::unordered_set<std::string> seen;
        found.erase(
            std::remove_if(found.begin(), found.end(),
                           [&](const std::string& name) { return !seen.insert(name).second; }),
            found.end());
        return found;
    }

    static void appendEach(const std::string& start, const std::vector<Range>& ranges,
                           std::vector<std::string>& names) {
        if (ranges.empty()) {
            names.push_back(start);
        }
        for (const Range& range : ranges) {
            const std::uint64_t count = range.count();
            for (std::uint64_t i = 0; i < count; ++i) {
                names.push_back(start + numberText(range.first + i * range.step, range.width));
            }
        }
    }

    std::string_view pattern;
    std::size_t most;
    std::size_t at = 0;
    std::size_t joinedAt = std::string_view::npos;
    std::vector<Part> parts;
};

}  // namespace

std::vector<std::string> NodePattern::expand(std::string_view pattern, std::size_t most) {
    return Parser(pattern, most).names();
}
