#include "CommandText.h"

#include "Text.h"

std::string commandtext::withoutPath(const std::string& line) {
    std::string::size_type start = 0;
    for (;;) {
        const std::string::size_type slash = line.find('/', start);
        if (slash == std::string::npos || line.find('-', start) < slash) {
            return Text::trimmed(line.substr(start));
        }
        start = slash + 1;
    }
}
