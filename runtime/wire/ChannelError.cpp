#include "ChannelError.h"

#include <utility>

ChannelError::ChannelError(Kind kind, std::string text)
    : CException(std::move(text)), reason(kind) {}

ChannelError::~ChannelError() = default;
