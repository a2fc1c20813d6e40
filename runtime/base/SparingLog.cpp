#include "SparingLog.h"

#include <algorithm>
#include <utility>

namespace {

// The key under which lines are counted when there is no room for their own.
const char* const kOthers = "other sources";

}  // namespace

SparingLog::SparingLog(Write writeLine, Clock::duration ownPeriod, std::size_t most)
    : writer(std::move(writeLine)), period(ownPeriod), mostKeys(most) {}

void SparingLog::note(const std::string& key, const std::string& text, Clock::time_point now) {
    tell(now);
    const bool hasPlace = entries.size() < mostKeys || entries.count(key) != 0;
    const auto [entry, isNew] = entries.try_emplace(hasPlace ? key : kOthers);
    if (isNew) {
        entry->second.since = now;
        writer(text);
        return;
    }
    ++entry->second.more;
    entry->second.latest = text;
}

bool SparingLog::write(Kept& kept, Clock::time_point now) {
    if (kept.more == 0) {
        return false;
    }
    const auto lasted = std::chrono::round<std::chrono::seconds>(now - kept.since).count();
    writer(kept.latest + " (" + grouped(kept.more) + " more in " + std::to_string(lasted) + " s)");
    kept.more = 0;
    kept.since = now;
    return true;
}

void SparingLog::tell(Clock::time_point now) {
    for (auto entry = entries.begin(); entry != entries.end();) {
        const bool isOver = now - entry->second.since >= period;
        entry = isOver && !write(entry->second, now) ? entries.erase(entry) : std::next(entry);
    }
}

void SparingLog::tellAll(Clock::time_point now) {
    for (auto& entry : entries) {
        static_cast<void>(write(entry.second, now));
    }
    entries.clear();
}

std::optional<SparingLog::Clock::time_point> SparingLog::nextDue() const {
    std::optional<Clock::time_point> due;
    for (const auto& entry : entries) {
        const Clock::time_point end = entry.second.since + period;
        due = due ? std::min(*due, end) : end;
    }
    return due;
}

std::string SparingLog::grouped(unsigned long count) {
    std::string text = std::to_string(count);
    for (std::size_t at = text.size(); at > 3; at -= 3) {
        text.insert(at - 3, ",");
    }
    return text;
}
