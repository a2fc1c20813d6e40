#pragma once

#include "CException.h"

// A file could not be opened; the message names the file and the reason.
class CCannotOpenFileException : public CException {
public:
    explicit CCannotOpenFileException(std::string text);
    CCannotOpenFileException(const CCannotOpenFileException&) = default;
    CCannotOpenFileException& operator=(const CCannotOpenFileException&) = default;
    ~CCannotOpenFileException() override;
};
