#include "ProgressLine.h"

#include <cstdio>

#include "Digest.h"
#include "NameFolding.h"
#include "Posix.h"

namespace {

constexpr char kToStartAndClear[] = "\r\x1b[K";
constexpr char kCut[] = "...";

std::string sizeText(std::uint64_t bytes) {
    static constexpr const char* kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    double value = static_cast<double>(bytes);
    std::size_t unit = 0;
    while (value >= 1000 && unit + 1 < std::size(kUnits)) {
        value /= 1024;
        ++unit;
    }
    char text[32];
    static_cast<void>(std::snprintf(
        text, sizeof text, unit == 0 || value >= 100 ? "%.0f %s" : "%.1f %s", value, kUnits[unit]));
    return text;
}

std::string transferText(const Progress& progress) {
    std::string text = ", " + sizeText(*progress.bytes) + " of " + sizeText(progress.bytesInAll);
    if (progress.ms > 0 && *progress.bytes > 0) {
        const double perMs =
            static_cast<double>(*progress.bytes) / static_cast<double>(progress.ms);
        text += ", " + sizeText(static_cast<std::uint64_t>(perMs * 1000)) + "/s";
        if (progress.bytesInAll > *progress.bytes) {
            text += ", " +
                    durationText(static_cast<long>(
                        static_cast<double>(progress.bytesInAll - *progress.bytes) / perMs)) +
                    " left";
        }
    }
    return text;
}

}  // namespace

std::string progressText(const Progress& progress, unsigned int columns) {
    const std::string time = " " + durationText(progress.ms);
    std::string text =
        std::to_string(progress.done) + " of " + std::to_string(progress.total) + " done";
    if (progress.failed > 0) {
        text += ", " + std::to_string(progress.failed) + " failed";
    }
    if (progress.bytes) {
        text += transferText(progress);
    }
    if (!progress.awaited.empty()) {
        text += ", awaited: " + foldNames(progress.awaited);
    }
    // The last column stays free: a terminal would go to the next line there.
    const std::size_t room = columns > 1 ? columns - 1 : 0;
    if (text.size() + time.size() <= room) {
        return text + time;
    }
    // The names are cut first: how long it takes is the news.
    const std::size_t rest = time.size() + sizeof kCut - 1;
    if (room > rest) {
        return text.substr(0, room - rest) + kCut + time;
    }
    return text.substr(0, room);
}

ProgressLine::ProgressLine(int terminal, Clock::time_point commandBegan)
    : descriptor(terminal), next(commandBegan + kFirst) {}

ProgressLine::~ProgressLine() {
    erase();
}

ProgressLine::Clock::time_point ProgressLine::due() const {
    return descriptor < 0 ? Clock::time_point::max() : next;
}

void ProgressLine::draw(const Progress& progress, unsigned int columns, Clock::time_point now) {
    if (now < due()) {
        return;
    }
    next = now + kPause;
    const std::string text = progressText(progress, columns);
    if (text != shown) {
        write(kToStartAndClear + text);
        shown = text;
    }
}

void ProgressLine::erase() {
    if (!shown.empty()) {
        write(kToStartAndClear);
        shown.clear();
    }
}

void ProgressLine::write(const std::string& bytes) const {
    // A terminal that is gone costs the line and nothing else.
    static_cast<void>(Posix::writeAll(descriptor, bytes));
}
