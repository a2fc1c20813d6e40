#include "NameFolding.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <tuple>
#include <utility>

#include "Text.h"

namespace {

// A number with more digits than 64 bits hold is text.
constexpr std::size_t kMostDigits = 18;
constexpr char kGrammar[] = ",!&^@[]/ ";

// One name, cut at its last number.
struct Cut {
    std::string before;
    std::string digits;
    std::string after;
};

bool cutAtNumber(const std::string& name, Cut& cut) {
    if (name.find_first_of(kGrammar) != std::string::npos) {
        return false;
    }
    std::size_t end = name.size();
    while (end > 0 && !Text::isDigit(name[end - 1])) {
        --end;
    }
    std::size_t begin = end;
    while (begin > 0 && Text::isDigit(name[begin - 1])) {
        --begin;
    }
    if (begin == end || end - begin > kMostDigits) {
        return false;
    }
    cut = {name.substr(0, begin), name.substr(begin, end - begin), name.substr(end)};
    return true;
}

bool isPadded(const std::string& digits) {
    return digits.size() > 1 && digits.front() == '0';
}

std::uint64_t valueOf(const std::string& digits) {
    return std::stoull(digits);
}

// Whether next continues the range from first to last.
bool goesOn(const std::string& first, const std::string& last, const std::string& next) {
    if (valueOf(next) != valueOf(last) + 1) {
        return false;
    }
    // A padded range keeps its width; in another one no number may be padded.
    return isPadded(first) ? next.size() == first.size() : !isPadded(next);
}

bool lessNumber(const std::string& left, const std::string& right) {
    const std::uint64_t a = valueOf(left);
    const std::uint64_t b = valueOf(right);
    return a != b ? a < b : left.size() < right.size();
}

std::string foldNumbers(std::vector<std::string> numbers) {
    std::sort(numbers.begin(), numbers.end(), lessNumber);
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    if (numbers.size() == 1) {
        return numbers.front();
    }
    std::string ranges;
    for (std::size_t begin = 0; begin < numbers.size();) {
        std::size_t end = begin;
        while (end + 1 < numbers.size() && goesOn(numbers[begin], numbers[end], numbers[end + 1])) {
            ++end;
        }
        ranges += (ranges.empty() ? "" : ",") + numbers[begin];
        if (end > begin) {
            ranges += "-" + numbers[end];
        }
        begin = end + 1;
    }
    return "[" + ranges + "]";
}

}  // namespace

std::string foldNames(const std::vector<std::string>& names) {
    // By the text in front of the number, then by the text behind it. A name without a number
    // stands as a whole, before those that go on with one.
    std::map<std::tuple<std::string, bool, std::string>, std::vector<std::string>> families;
    for (const std::string& name : names) {
        Cut cut;
        if (cutAtNumber(name, cut)) {
            families[{cut.before, true, cut.after}].push_back(cut.digits);
        } else {
            families[{name, false, ""}];
        }
    }
    std::string folded;
    for (auto& [text, numbers] : families) {
        const std::string number = numbers.empty() ? "" : foldNumbers(std::move(numbers));
        folded += (folded.empty() ? "" : ",") + std::get<0>(text) + number + std::get<2>(text);
    }
    return folded;
}
