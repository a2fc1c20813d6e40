#pragma once

#include "CException.h"

// Something was registered twice: a command, an option, a node in a group, a child set.
class CAlreadyExistException : public CException {
public:
    explicit CAlreadyExistException(std::string text);
    CAlreadyExistException(const CAlreadyExistException&) = default;
    CAlreadyExistException& operator=(const CAlreadyExistException&) = default;
    ~CAlreadyExistException() override;
};
