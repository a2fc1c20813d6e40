#include "CException.h"

#include <iostream>
#include <utility>

CException::CException(std::string text) : message(std::move(text)) {}

CException::~CException() = default;

std::string CException::getErrMsg() const {
    return message;
}

const char* CException::what() const noexcept {
    return message.c_str();
}

void CException::dump() const {
    std::cout << message << std::endl;
}
