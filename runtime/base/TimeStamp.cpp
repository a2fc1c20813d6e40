#include "TimeStamp.h"

#include <ctime>

namespace timestamp {

std::string now() {
    timespec time{};
    ::clock_gettime(CLOCK_REALTIME, &time);
    tm parts{};
    ::gmtime_r(&time.tv_sec, &parts);
    char text[40];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    return std::string(text, length) + "." +
           std::to_string(1000 + time.tv_nsec / 1000000).substr(1) + "Z";
}

}  // namespace timestamp
