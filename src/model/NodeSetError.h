#pragma once

#include "CException.h"

// A set of nodes that is written wrongly, or that names what is not there. The message begins with
// the term: "n[5-1]: the range 5-1 goes down; write n[1-5]".
class NodeSetError : public CException {
public:
    using CException::CException;
};
