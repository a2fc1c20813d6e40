#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>

// Writes log lines that strangers can cause, but not so many that they fill the log. Each line has
// a key, such as the source address or the certificate. The first line under a key is written at
// once. Lines that follow within the period are counted, and one line reports them when it ends:
//
//   192.0.2.7: the shell showed no certificate.
//   192.0.2.7: the shell showed no certificate. (4,211 more in 60 s)
//
// That line repeats the latest text. At most mostKeys keys are kept; lines under further keys are
// counted under one key for all. Use from one thread only.
class SparingLog {
public:
    using Clock = std::chrono::steady_clock;
    using Write = std::function<void(const std::string& line)>;

    static constexpr std::chrono::seconds kPeriod{60};
    static constexpr std::size_t kMostKeys = 512;

    explicit SparingLog(Write writeLine, Clock::duration ownPeriod = kPeriod,
                        std::size_t most = kMostKeys);

    // text is a whole line, safe for the log.
    void note(const std::string& key, const std::string& text, Clock::time_point now);
    // Reports what was counted in periods that are over. Call it from time to time.
    void tell(Clock::time_point now);
    // The same without waiting for the end of the periods; for the end of the program.
    void tellAll(Clock::time_point now);
    // When tell() next has something to report; none while nothing is kept.
    std::optional<Clock::time_point> nextDue() const;

    // The number as it appears in such a line: 4211 is "4,211".
    static std::string grouped(unsigned long count);

private:
    struct Kept {
        Clock::time_point since;
        unsigned long more = 0;
        std::string latest;
    };
    // False when nothing was counted, so that the key can be forgotten.
    bool write(Kept& kept, Clock::time_point now);

    Write writer;
    Clock::duration period;
    std::size_t mostKeys;
    std::map<std::string, Kept> entries;
};
