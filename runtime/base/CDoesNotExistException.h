#pragma once

#include "CException.h"

// Something named by the user, such as a level of the command tree, does not exist.
class CDoesNotExistException : public CException {
public:
    explicit CDoesNotExistException(std::string text);
    CDoesNotExistException(const CDoesNotExistException&) = default;
    CDoesNotExistException& operator=(const CDoesNotExistException&) = default;
    ~CDoesNotExistException() override;
};
