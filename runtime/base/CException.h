#pragma once

#include <exception>
#include <string>

// The base class of all exceptions of kelsh. Thrown by value, caught by reference.
class CException : public std::exception {
public:
    explicit CException(std::string text);
    CException(const CException&) = default;
    CException& operator=(const CException&) = default;
    ~CException() override;

    // The message as it is shown to the user.
    std::string getErrMsg() const;
    const char* what() const noexcept override;
    // Prints the message and a newline on standard output.
    void dump() const;

private:
    std::string message;
};
