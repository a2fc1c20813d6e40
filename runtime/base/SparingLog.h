#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>

// Keeps who can cause lines from filling the log with them. The first line under a key, as a source
// address or a certificate, is written at once. Those that follow within the period are counted,
// and told of in one line when it ends:
//
//   192.0.2.7: the shell showed no certificate.
//   192.0.2.7: the shell showed no certificate. (4,211 more in 60 s)
//
// The text told of is the latest. At most mostKeys keys are kept; what comes under more of them is
// counted under one key for all. Not for use from several threads.
class SparingLog {
public:
    using Clock = std::chrono::steady_clock;
    using Write = std::function<void(const std::string& line)>;

    static constexpr std::chrono::seconds kPeriod{60};
    static constexpr std::size_t kMostKeys = 512;

    explicit SparingLog(Write writeLine, Clock::duration ownPeriod = kPeriod,
                        std::size_t most = kMostKeys);

    // text is a whole line, fit for the log.
    void note(const std::string& key, const std::string& text, Clock::time_point now);
    // Tells of what was only counted in periods that are over. To be called from time to time.
    void tell(Clock::time_point now);
    // The same without waiting for the end of a period: at the end of the program.
    void tellAll(Clock::time_point now);
    // When tell() has something to do; none while nothing is kept.
    std::optional<Clock::time_point> nextDue() const;

    // A number as it stands in such a line: 4211 is "4,211".
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
