#include "CCannotOpenFileException.h"

#include <utility>

CCannotOpenFileException::CCannotOpenFileException(std::string text)
    : CException(std::move(text)) {}

CCannotOpenFileException::~CCannotOpenFileException() = default;
