#include "PtyTerminal.h"

#include <poll.h>

PtyTerminal::PtyTerminal(std::vector<std::string> arguments, Options wanted)
    : options(std::move(wanted)) {
    makeScreen();
    winsize size = options.knowsItsSize ? sizeOf(options.rows, options.columns) : winsize{};
    int user = -1;
    child = forkpty(&user, nullptr, nullptr, &size);
    if (child < 0) {
        throw std::runtime_error("cannot start a program on a terminal");
    }
    if (child == 0) {
        becomeProgram(arguments);
    }
    terminal.reset(user);
    fcntl(user, F_SETFD, FD_CLOEXEC);
    fcntl(user, F_SETFL, O_NONBLOCK);
}

PtyTerminal::~PtyTerminal() {
    terminal.reset();
    if (!status) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    if (::testing::Test::HasFailure()) {
        std::fprintf(stderr, "---- the dialogue ----%s\n---- the screen ----\n", dialogue.c_str());
        for (const std::string& line : rows()) {
            std::fprintf(stderr, "|%s\n", line.c_str());
        }
    }
    vterm_free(emulator);
}

void PtyTerminal::send(const std::string& bytes) {
    note("\n> ", bytes);
    outgoing += bytes;
    pump(0);
}

bool PtyTerminal::until(const std::function<bool()>& condition, int limitMs) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
    while (!condition()) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return false;
        }
        // A condition outside the terminal, such as the program's end, has no descriptor.
        pump(static_cast<int>(std::min<long>(left.count(), 10)));
    }
    return true;
}

bool PtyTerminal::untilShown(const std::string& text, int limitMs) {
    return until([&] { return shows(text); }, limitMs);
}

bool PtyTerminal::untilLine(const std::string& text, int limitMs) {
    return until([&] { return lineAtCursor() == text; }, limitMs);
}

std::optional<int> PtyTerminal::end(int limitMs) {
    until([&] { return hasEnded(); }, limitMs);
    return status;
}

bool PtyTerminal::hasEnded() {
    int now = 0;
    if (!status && waitpid(child, &now, WNOHANG) == child) {
        status = now;
    }
    return status.has_value();
}

std::string PtyTerminal::row(int y) const {
    std::string text;
    for (int x = 0; x < options.columns; ++x) {
        VTermScreenCell cell;
        vterm_screen_get_cell(screen, VTermPos{y, x}, &cell);
        text += cell.chars[0] == 0 ? std::string(1, ' ') : encode(cell.chars[0]);
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

std::vector<std::string> PtyTerminal::rows() const {
    std::vector<std::string> all;
    for (int y = 0; y < options.rows; ++y) {
        all.push_back(row(y));
    }
    while (!all.empty() && all.back().empty()) {
        all.pop_back();
    }
    return all;
}

std::vector<std::string> PtyTerminal::everything() const {
    std::vector<std::string> all = scrolledOff;
    for (std::string& line : rows()) {
        all.push_back(std::move(line));
    }
    return all;
}

bool PtyTerminal::shows(const std::string& text) const {
    for (int y = 0; y < options.rows; ++y) {
        if (row(y).find(text) != std::string::npos) {
            return true;
        }
    }
    return false;
}

PtyTerminal::Position PtyTerminal::cursor() const {
    VTermPos position = {};
    vterm_state_get_cursorpos(vterm_obtain_state(emulator), &position);
    return {position.row, position.col};
}

std::string PtyTerminal::lineAtCursor() const {
    const Position at = cursor();
    std::string text = row(at.row);
    text.resize(static_cast<std::size_t>(at.column), ' ');
    return text;
}

void PtyTerminal::resize(int newRows, int newColumns) {
    options.rows = newRows;
    options.columns = newColumns;
    vterm_set_size(emulator, newRows, newColumns);
    const winsize size = sizeOf(newRows, newColumns);
    if (ioctl(terminal.get(), TIOCSWINSZ, &size) != 0) {
        throw std::runtime_error("cannot resize the terminal");
    }
}

termios PtyTerminal::mode() const {
    termios now = {};
    if (tcgetattr(terminal.get(), &now) != 0) {
        throw std::runtime_error("cannot read the terminal's mode");
    }
    return now;
}

winsize PtyTerminal::sizeOf(int rows, int columns) {
    winsize size = {};
    size.ws_row = static_cast<unsigned short>(rows);
    size.ws_col = static_cast<unsigned short>(columns);
    return size;
}

void PtyTerminal::becomeProgram(const std::vector<std::string>& arguments) const {
    for (const auto& [name, value] : options.environment) {
        if (value) {
            setenv(name.c_str(), value->c_str(), 1);
        } else {
            unsetenv(name.c_str());
        }
    }
    // On Ctrl+C and Ctrl+Z the kernel first signals and then throws away what is on its way in
    // either direction, which may by then be what the program had to say about the signal.
    termios terminalMode = {};
    if (tcgetattr(STDIN_FILENO, &terminalMode) == 0) {
        terminalMode.c_lflag |= NOFLSH;
        tcsetattr(STDIN_FILENO, TCSANOW, &terminalMode);
    }
    std::vector<char*> pointers;
    for (const std::string& argument : arguments) {
        pointers.push_back(const_cast<char*>(argument.c_str()));
    }
    pointers.push_back(nullptr);
    if (chdir(options.directory.c_str()) == 0) {
        execvp(pointers[0], pointers.data());
    }
    _exit(127);
}

void PtyTerminal::makeScreen() {
    emulator = vterm_new(options.rows, options.columns);
    vterm_set_utf8(emulator, 1);
    vterm_output_set_callback(
        emulator,
        [](const char* bytes, std::size_t count, void* self) {
            auto* const owner = static_cast<PtyTerminal*>(self);
            if (owner->options.answersQuestions) {
                owner->note("\n> ", std::string(bytes, count));
                owner->outgoing.append(bytes, count);
            }
        },
        this);
    screen = vterm_obtain_screen(emulator);
    callbacks.bell = [](void* self) {
        ++static_cast<PtyTerminal*>(self)->bellCount;
        return 1;
    };
    callbacks.sb_pushline = [](int count, const VTermScreenCell* cells, void* self) {
        std::string text;
        for (int x = 0; x < count; ++x) {
            text += cells[x].chars[0] == 0 ? std::string(1, ' ') : encode(cells[x].chars[0]);
        }
        text.erase(text.find_last_not_of(' ') + 1);
        static_cast<PtyTerminal*>(self)->scrolledOff.push_back(text);
        return 1;
    };
    vterm_screen_set_callbacks(screen, &callbacks, this);
    vterm_screen_reset(screen, 1);
}

void PtyTerminal::pump(int limitMs) {
    if (!terminal) {
        poll(nullptr, 0, limitMs);
        return;
    }
    pollfd watched = {terminal.get(),
                      static_cast<short>(outgoing.empty() ? POLLIN : POLLIN | POLLOUT), 0};
    if (poll(&watched, 1, limitMs) <= 0) {
        return;
    }
    if ((watched.revents & POLLIN) != 0) {
        char buffer[65536];
        const ssize_t got = read(terminal.get(), buffer, sizeof buffer);
        if (got > 0) {
            const std::string bytes(buffer, static_cast<std::size_t>(got));
            note("\n< ", bytes);
            incoming += bytes;
            vterm_input_write(emulator, bytes.data(), bytes.size());
            vterm_screen_flush_damage(screen);
        }
    } else if ((watched.revents & POLLHUP) != 0) {
        // Nobody has the terminal open; do not spin.
        poll(nullptr, 0, limitMs);
    }
    if ((watched.revents & POLLOUT) != 0 && !outgoing.empty()) {
        const ssize_t sent = write(terminal.get(), outgoing.data(), outgoing.size());
        if (sent > 0) {
            outgoing.erase(0, static_cast<std::size_t>(sent));
        }
    }
}

void PtyTerminal::note(const std::string& direction, const std::string& bytes) {
    if (direction != lastDirection) {
        dialogue += direction;
        lastDirection = direction;
    }
    for (const char c : bytes) {
        if (c >= ' ' && c < 0x7f) {
            dialogue += c;
        } else {
            char text[8];
            std::snprintf(text, sizeof text, c == '\n' ? "\\n" : "\\x%02x",
                          static_cast<unsigned char>(c));
            dialogue += text;
        }
    }
}

std::string PtyTerminal::encode(std::uint32_t c) {
    std::string text;
    if (c < 0x80) {
        text += static_cast<char>(c);
    } else if (c < 0x800) {
        text += static_cast<char>(0xc0 | (c >> 6));
        text += static_cast<char>(0x80 | (c & 0x3f));
    } else {
        text += static_cast<char>(0xe0 | (c >> 12));
        text += static_cast<char>(0x80 | ((c >> 6) & 0x3f));
        text += static_cast<char>(0x80 | (c & 0x3f));
    }
    return text;
}
