#include "ConfigFileLines.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>

#include "ConfigLineReader.h"
#include "Posix.h"

std::string ConfigFileLines::read(const std::string& fileName) {
    const Posix::File file = Posix::openFile(fileName, "re");
    struct stat status {};
    if (!file || ::fstat(::fileno(file.get()), &status) != 0) {
        return std::string("cannot be opened: ") + std::strerror(errno);
    }
    if (S_ISDIR(status.st_mode)) {
        return "is a directory";
    }
    ConfigLineReader reader(file.get());
    int number = 0;
    int tooLong = 0;
    bool continued = false;
    bool returns = false;
    for (Line line; reader.next(line.text); lines.push_back(line)) {
        line.number = continued ? number : ++number;
        const bool isPart = !reader.hadNewline() &&
                            line.text.size() == std::size_t{ConfigLineReader::kBufferBytes} - 1;
        // A line of exactly 511 bytes is followed by an empty piece, which does no harm.
        if (continued && !line.text.empty() && number != tooLong) {
            tooLong = number;
            warnings.push_back(
                {"the line is longer than 511 bytes: its rest is read as a line of its own",
                 number});
        }
        continued = isPart;
        if (!returns && !line.text.empty() && line.text.back() == '\r') {
            returns = true;
            warnings.push_back(
                {"the line ends in a carriage return, which belongs to its value", number});
        }
    }
    return std::ferror(file.get()) == 0 ? ""
                                        : std::string("cannot be read: ") + std::strerror(errno);
}
