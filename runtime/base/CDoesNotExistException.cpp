#include "CDoesNotExistException.h"

#include <utility>

CDoesNotExistException::CDoesNotExistException(std::string text) : CException(std::move(text)) {}

CDoesNotExistException::~CDoesNotExistException() = default;
