#pragma once

#include <string>

#include "NodeOutcome.h"

// The outcome of one node as one line of JSON, with its newline:
//     {"command":42,"node":"node_0002","address":"127.1.0.3","cause":"failed","status":2,
//      "exit_code":3,"ms":12,"output":"..."}
// exit_code is null for what never ran. An output that is not valid UTF-8 comes as
// "output_base64" instead of "output".
std::string jsonLine(unsigned int commandNumber, const NodeOutcome& outcome);
