#include "CAlreadyExistException.h"

#include <utility>

CAlreadyExistException::CAlreadyExistException(std::string text) : CException(std::move(text)) {}

CAlreadyExistException::~CAlreadyExistException() = default;
