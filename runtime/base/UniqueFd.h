#pragma once

// The sole owner of one file descriptor; closes it at the end of its life. -1 means none.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int descriptor) : fd(descriptor) {}
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    UniqueFd(UniqueFd&& other) noexcept : fd(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) {
            reset(other.release());
        }
        return *this;
    }
    ~UniqueFd() { reset(); }

    int get() const { return fd; }
    explicit operator bool() const { return fd >= 0; }

    // Hands the descriptor to the caller, who closes it.
    int release() {
        const int released = fd;
        fd = -1;
        return released;
    }

    // Closes the descriptor held, keeping errno, and takes over the new one.
    void reset(int descriptor = -1);

private:
    int fd = -1;
};
